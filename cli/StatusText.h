#pragma once

#include "helper/JSONValue.h"

#include <string>
#include <sys/types.h>

namespace cli {

// What a mount answers to "status", in words for people. A member that is not there, as from another version, is left
// out. Nothing in the texts does anything to a terminal.

/// The state, as in "waiting since 12 s for read of /a.txt on behalf of cat (pid 1234)".
std::string stateText(const kemvi::JSONObject& status);

/// All of it, in several lines, each with its line break.
std::string statusText(const kemvi::JSONObject& status);

/// "alice", or the number of a user who has no name here.
std::string userName(uid_t user);

/// "40 s", "3 min 20 s", "2 h 5 min", "12 d 3 h".
std::string durationText(double seconds);

} // namespace cli
