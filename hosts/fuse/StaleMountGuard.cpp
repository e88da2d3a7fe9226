#include "hosts/fuse/StaleMountGuard.h"

#include "hosts/fuse/HostLog.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fusehost {
namespace {

// A line on standard input is the orderly end. The mount's number is compared, since another one may be there by then.
// The name is that of the watchers that a mount's process has, so that nobody takes it for the helper.
constexpr const char* script = R"(printf fusermount-guard 2>/dev/null >/proc/$$/comm
read -r word || { grep -q "^$2 " /proc/self/mountinfo && exec fusermount3 -u -z -q -- "$1"; }
)";

/// The kernel's number of the mount at a path; empty if it cannot be told. Asks the mounted file system nothing.
std::string mountIDAt(const std::string& mountPoint) {
    const int place = ::open(mountPoint.c_str(), O_PATH | O_CLOEXEC);
    if (place < 0)
        return {};
    std::ifstream facts("/proc/self/fdinfo/" + std::to_string(place));
    std::string key;
    std::string value;
    while (facts >> key >> value && key != "mnt_id:")
        value.clear();
    ::close(place);
    return value;
}

} // namespace

StaleMountGuard::StaleMountGuard(const std::string& mountPoint) {
    const std::string mountID = mountIDAt(mountPoint);
    if (!mountID.empty())
        start(mountPoint, mountID);
    if (pid_ < 0)
        hostLog().info({"no process guards against a stale mount"});
}

void StaleMountGuard::start(const std::string& mountPoint, const std::string& mountID) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    std::array<std::string, 6> words{"sh", "-c", script, "sh", mountPoint, mountID};
    std::array<char*, 7> arguments{};
    for (std::size_t i = 0; i < words.size(); ++i)
        arguments[i] = words[i].data();
    if (::posix_spawn(&pid_, "/bin/sh", &actions, &attributes, arguments.data(), environ) != 0)
        pid_ = -1;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[0]);
    if (pid_ < 0)
        ::close(ends[1]);
    else
        pipe_ = ends[1];
}

StaleMountGuard::~StaleMountGuard() {
    if (pid_ < 0)
        return;
    // A guard that somebody has ended is no fault; SIGPIPE is ignored in this process.
    [[maybe_unused]] const ssize_t written = ::write(pipe_, "unmounted\n", 10);
    ::close(pipe_);
    ::waitpid(pid_, nullptr, 0);
}

} // namespace fusehost
