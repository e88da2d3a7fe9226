#include "hosts/fuse/kernel/Callers.h"

#include "foundation/FileContents.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace fusehost {
namespace {

using SignalSet = std::uint64_t; // signal N is bit N - 1

constexpr SignalSet only(int number) {
    return SignalSet{1} << (number - 1);
}

/// Signals that do not end a process which leaves them alone.
constexpr SignalSet harmless = only(SIGCHLD) | only(SIGCONT) | only(SIGURG) | only(SIGWINCH) | only(SIGSTOP) |
                               only(SIGTSTP) | only(SIGTTIN) | only(SIGTTOU);

/// The set on the line that begins with "name:"; empty if there is none.
SignalSet signalSet(std::string_view status, std::string_view name) {
    const std::string key = "\n" + std::string(name) + ":\t";
    const std::size_t line = status.find(key);
    SignalSet set = 0;
    if (line != std::string_view::npos) {
        const std::string_view digits = status.substr(line + key.size());
        std::from_chars(digits.data(), digits.data() + digits.size(), set, 16);
    }
    return set;
}

/// Tells from the text of /proc/ID/stat. The kernel flushes the files of a dying process without letting it be
/// interrupted, so this is the only way to learn that nobody waits for the result.
bool isExiting(const std::string& stat) {
    const std::size_t nameEnd = stat.rfind(')');
    unsigned flags = 0;
    constexpr unsigned exitingFlag = 0x4; // PF_EXITING
    return nameEnd != std::string::npos &&
           std::sscanf(stat.c_str() + nameEnd, ") %*c %*d %*d %*d %*d %*d %u", &flags) == 1 &&
           (flags & exitingFlag) != 0;
}

// A thread that /proc does not show may be hidden; one that cannot even be found by number is gone.
bool isGone(std::uint32_t thread) {
    return ::kill(static_cast<pid_t>(thread), 0) != 0 && errno == ESRCH;
}

} // namespace

bool isAboutToDie(std::string_view status) {
    const SignalSet pending = signalSet(status, "SigPnd") | signalSet(status, "ShdPnd");
    const SignalSet survived =
        signalSet(status, "SigBlk") | signalSet(status, "SigIgn") | signalSet(status, "SigCgt") | harmless;
    return (pending & (only(SIGKILL) | ~survived)) != 0;
}

SystemCallers::SystemCallers() : procIsOurs_(false) {
    char self[16] = {};
    const ssize_t length = ::readlink("/proc/self", self, sizeof self - 1);
    procIsOurs_ = length > 0 && self == std::to_string(::getpid());
}

CallerFate SystemCallers::fateOf(std::uint32_t thread) const noexcept {
    if (thread == 0)
        return CallerFate::unseen;
    try {
        if (isGone(thread))
            return CallerFate::dies;
        if (!procIsOurs_)
            return CallerFate::unseen;
        const std::string folder = "/proc/" + std::to_string(thread);
        const bool dies = isExiting(foundation::contentsOfFile(folder + "/stat")) ||
                          isAboutToDie(foundation::contentsOfFile(folder + "/status"));
        return dies ? CallerFate::dies : CallerFate::lives;
    } catch (...) {
        return isGone(thread) ? CallerFate::dies : CallerFate::unseen;
    }
}

} // namespace fusehost
