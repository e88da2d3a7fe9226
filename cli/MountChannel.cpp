#include "cli/MountChannel.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/MountTarget.h"

#include <optional>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

using control::ChannelError;
using control::ControlClient;

std::optional<ServingProcess> servingProcessBehind(const MountTarget& target) {
    for (auto& serving : servingProcesses())
        if (isBehind(serving, target))
            return std::move(serving);
    return std::nullopt;
}

/// Nobody is to be seen behind a mount.
[[noreturn]] void refuseUnseen(const MountTarget& target) {
    const auto owner = target.mount ? target.mount->owner : std::nullopt;
    if (!target.mount)
        throw CommandError(ExitCode::notMounted, target.path, "nothing is mounted here");
    if (owner && *owner != ::geteuid() && ::geteuid() != 0) {
        throw CommandError(ExitCode::failure, target.path,
                           "is the mount of user " + std::to_string(*owner) + "; only they and root may ask it");
    }
    throw CommandError(ExitCode::failure, target.path,
                       "the process that serves it is not to be seen from here: it has ended, or runs in another "
                       "container; to clear the mount: kemvi unmount " +
                           target.path);
}

ControlClient connectTo(const ServingProcess& serving, ControlClient::Limit limit) {
    if (serving.controlPath.empty()) {
        throw CommandError(ExitCode::failure, serving.mountPoint,
                           "has no control channel; its log says why, from the time when it was mounted");
    }
    try {
        return {serving.controlPath, serving.process.pid(), limit};
    } catch (const ChannelError& error) {
        throwChannelProblem(serving.mountPoint, error);
    }
}

} // namespace

ControlClient connectToMount(const std::string& mountPoint, ControlClient::Limit limit) {
    const MountTarget target = findMountTarget(mountPoint);
    const auto serving = servingProcessBehind(target);
    if (!serving)
        refuseUnseen(target);
    return connectTo(*serving, limit);
}

void throwChannelProblem(const std::string& mountPoint, const ChannelError& error) {
    const std::string text = error.what();
    switch (error.kind()) {
    case ChannelError::Kind::refused: throw CommandError(ExitCode::failure, mountPoint, text);
    case ChannelError::Kind::silent:
        throw CommandError(ExitCode::failure, mountPoint,
                           "its control channel gives no answer; the process that serves it may be stopped");
    default: throw CommandError(ExitCode::failure, mountPoint, "its control channel cannot be used: " + text);
    }
}

} // namespace cli
