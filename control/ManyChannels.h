#pragma once

#include "control/ControlClient.h"
#include "helper/JSONValue.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace control {

/// The channel of one mount, as ControlClient takes it.
struct ChannelAddress {
    std::string socketPath;
    pid_t process = 0;
};

/// The members that came, or else why none did.
struct ChannelAnswer {
    std::optional<kemvi::JSONObject> members;
    std::optional<ChannelError> problem;
};

/// So many connections are open at a time, whatever the number of mounts: descriptors are few in some sessions.
inline constexpr std::size_t mostChannelsAtOnce = 256;

/// Asks all of them the same thing, on the calling thread alone, and returns what each answered, in their order. Each
/// has `limit` from the moment when it is turned to, for connection and answer together; one that is silent holds up
/// nobody unless more than `mostChannelsAtOnce` are. Throws nothing but for want of memory.
std::vector<ChannelAnswer> askAll(const std::vector<ChannelAddress>& channels, std::string_view operation,
                                  ControlClient::Limit limit);

} // namespace control
