#include "hosts/fuse/mounting/Unmounting.h"

#include "hosts/fuse/mounting/MountReason.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace fusehost {

namespace {

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

struct Outcome {
    int status = -1; // the exit status, -1 if the program could not be run
    std::string messages;
};

/// Runs fusermount3 and gathers what it says, in English whatever the user's language.
Outcome runFusermount(const char* how, const std::string& mountPoint) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return {-1, errnoText(errno)};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::string program = "fusermount3";
    std::string option = how;
    std::string end = "--";
    std::string path = mountPoint;
    std::array<char*, 5> arguments{program.data(), option.data(), end.data(), path.data(), nullptr};
    std::string language = "LC_ALL=C";
    std::string search =
        std::string("PATH=") + (std::getenv("PATH") != nullptr ? std::getenv("PATH") : "/usr/bin:/bin");
    std::array<char*, 3> environment{language.data(), search.data(), nullptr};
    pid_t pid = -1;
    const int error = ::posix_spawnp(&pid, program.c_str(), &actions, nullptr, arguments.data(), environment.data());
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    Outcome outcome;
    if (error != 0) {
        outcome.messages = error == ENOENT ? "fusermount3 is not in PATH; install the package fuse3" : errnoText(error);
    } else {
        std::array<char, 512> bytes{};
        for (ssize_t count = 0; (count = ::read(ends[0], bytes.data(), bytes.size())) > 0;)
            outcome.messages.append(bytes.data(), static_cast<std::size_t>(count));
        int status = 0;
        if (::waitpid(pid, &status, 0) == pid && WIFEXITED(status))
            outcome.status = WEXITSTATUS(status);
    }
    ::close(ends[0]);
    while (!outcome.messages.empty() && outcome.messages.back() == '\n')
        outcome.messages.pop_back();
    return outcome;
}

std::optional<UnmountFailure> unmountBy(const std::string& mountPoint, int flags, const char* fusermountOption) {
    if (::umount2(mountPoint.c_str(), flags | UMOUNT_NOFOLLOW) == 0)
        return std::nullopt;
    if (errno != EPERM)
        return UnmountFailure{errno == EBUSY, errnoText(errno)};
    const Outcome outcome = runFusermount(fusermountOption, mountPoint);
    if (outcome.status == 0)
        return std::nullopt;
    return UnmountFailure{outcome.messages.find(std::strerror(EBUSY)) != std::string::npos,
                          mountReason(outcome.messages)};
}

} // namespace

std::optional<UnmountFailure> unmount(const std::string& mountPoint) {
    return unmountBy(mountPoint, 0, "-u");
}

std::optional<UnmountFailure> unmountLazily(const std::string& mountPoint) {
    return unmountBy(mountPoint, MNT_DETACH, "-uz");
}

void unmountStaleDevice(unsigned deviceMinor, const std::string& expected) {
    const auto path = reachablePath(readMountTable(), deviceMinor, expected);
    if (path && isStale(*path))
        unmountLazily(*path);
}

} // namespace fusehost
