#include "Streams.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace kemvi::kit {
namespace {

// The descriptor's stream under another number, which no child inherits.
foundation::Descriptor aside(int standard) {
    foundation::Descriptor moved(::fcntl(standard, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!moved.isOpen())
        throw std::system_error(errno, std::generic_category(), "the standard streams cannot be taken");
    return moved;
}

void putNothingAt(int standard) {
    const foundation::Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    ::dup2(nothing.number(), standard);
}

Streams takeThem() {
    foundation::Descriptor requests = aside(STDIN_FILENO);
    foundation::Descriptor answers = aside(STDOUT_FILENO);
    putNothingAt(STDIN_FILENO);
    if (::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        putNothingAt(STDOUT_FILENO); // there is no standard error
    return {foundation::FileHandle(std::move(requests)), foundation::FileHandle(std::move(answers))};
}

#ifdef __linux__
// Where a script of node stays between the mount and this process, it says so, and this process ends with it: the mount
// knows of that one alone, and may have to kill it.
void endWithLauncher() {
    const char* const launcher = std::getenv("KEMVI_LAUNCHER");
    if (launcher == nullptr || launcher != std::to_string(::getppid()))
        return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (launcher != std::to_string(::getppid()))
        std::abort(); // it went just before
}
#else
void endWithLauncher() {}
#endif

// Started by a mount: nothing that is printed may reach the answers, not even before `serve` is called.
[[maybe_unused]] const bool takenEarly = [] {
    if (std::getenv("KEMVI_DRIVE_ID") == nullptr)
        return false;
    endWithLauncher();
    takeStreams();
    return true;
}();

} // namespace

Streams& takeStreams() {
    static Streams streams = takeThem();
    return streams;
}

} // namespace kemvi::kit
