#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What a program says on its standard output, which is to be short; nothing if it cannot be run, fails, or is not done
/// within the limit, when it is killed. `command` is the program's path and its arguments. It reads nothing, and what
/// it says on standard error is dropped.
std::optional<std::string> programOutput(const std::vector<std::string>& command, std::chrono::milliseconds limit);

} // namespace cli
