#pragma once

#include "control/ControlClient.h"

#include <string>

namespace cli {

/// Connects to the channel of what is mounted at this path (the mount point as the user names it; it may be relative,
/// or a link). Never touches what is mounted. Throws CommandError with what the user can do: nothing is mounted there
/// (ExitCode::notMounted), it is another user's, it has no channel, it does not answer (ExitCode::failure).
control::ControlClient connectToMount(const std::string& mountPoint,
                                      control::ControlClient::Limit limit = control::ControlClient::usualLimit);

/// What a refusal or a channel that broke means, thrown as CommandError about `mountPoint`; call it in a catch block.
[[noreturn]] void throwChannelProblem(const std::string& mountPoint, const control::ChannelError& error);

} // namespace cli
