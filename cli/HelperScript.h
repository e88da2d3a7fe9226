#pragma once

#include <string>

namespace cli {

/// The shipped helper that serves a folder.
inline constexpr const char* defaultHelper = "local";

/// The path of the helper that a user names: by its path, or by its bare name if it is one that ships with the command.
/// Throws CommandError if there is no such file.
std::string helperScript(const std::string& named);

/// Whether a file is a compiled program, and so none that node runs.
bool isProgram(const std::string& path);

} // namespace cli
