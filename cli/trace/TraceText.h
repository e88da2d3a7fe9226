#pragma once

#include "helper/JSONValue.h"

#include <string>

namespace cli {

/// A line of a trace, as the channel sends it, in words for people, without a line break: the local time, who asked,
/// the operation, the path and the arguments that matter, what came of it, how long it took, and the exchanges. Nothing
/// in it does anything to a terminal. What a line lacks is left out.
std::string traceText(const kemvi::JSONObject& line);

} // namespace cli
