#pragma once

#include <optional>
#include <string>

namespace cli {

/// Where a helper may keep what it wants to keep. Made by the helper when it first needs it.
std::string defaultHome();

/// What is to be known of a helper that works on this directory; nothing if nothing is.
std::optional<std::string> remarkOnServing(const std::string& directory);

/// The command that mounts a source directory, for people.
std::string mountCommand(const std::string& source);

} // namespace cli
