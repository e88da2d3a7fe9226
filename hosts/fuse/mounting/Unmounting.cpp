#include "hosts/fuse/mounting/Unmounting.h"

#include "foundation/ChildProcess.h"
#include "foundation/Error.h"
#include "foundation/Pipe.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/mounting/MountReason.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sys/mount.h>
#include <system_error>

namespace fusehost {

namespace {

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

struct Outcome {
    int status = -1; // the exit status, -1 if the program could not be run
    std::string messages;
};

std::map<std::string, std::string> fusermountEnvironment() {
    const char* path = std::getenv("PATH");
    // In English whatever the user's language: what it says is looked into.
    return {{"LC_ALL", "C"}, {"PATH", path != nullptr ? path : "/usr/bin:/bin"}};
}

std::string launchProblem(const foundation::NSError& error) {
    return error.isPosix() ? errnoText(foundation::platformErrno(static_cast<std::int32_t>(error.code)))
                           : "fusermount3 is not in PATH; install the package fuse3";
}

std::string everythingFrom(foundation::FileHandle& stream) {
    std::string text;
    while (const auto byte = stream.readByte())
        text += static_cast<char>(*byte);
    return text;
}

/// Runs fusermount3 and gathers what it says.
Outcome runFusermount(const char* how, const std::string& mountPoint) {
    foundation::Pipe messages;
    if (messages.creationError() != 0)
        return {-1, errnoText(foundation::platformErrno(messages.creationError()))};
    foundation::ChildProcess::Options options;
    options.executable = "fusermount3";
    options.arguments = {how, "--", mountPoint};
    options.environment = fusermountEnvironment();
    options.standardError = messages.fileHandleForWriting().fileDescriptor();
    foundation::ChildProcess program;
    try {
        program.launch(options);
    } catch (const foundation::NSErrorException& error) {
        return {-1, launchProblem(error.nsError())};
    }
    messages.fileHandleForWriting().close();
    Outcome outcome{-1, everythingFrom(messages.fileHandleForReading())};
    program.waitUntilExit();
    if (const auto status = program.exitStatus())
        outcome.status = status->code().value_or(-1);
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
