#pragma once

#include <optional>
#include <string>

namespace cli {

/// The shipped helper that serves a folder.
inline constexpr const char* defaultHelper = "local";

/// The path of the helper that a user names: by its path, or by its bare name if it is one that ships with the command.
/// Throws CommandError if there is no such file.
std::string helperScript(const std::string& named);

/// The path of a helper that ships with the command, whatever lies in the working directory. Throws CommandError if it
/// is not installed.
std::string shippedHelper(const std::string& name);

/// Whether a file is a compiled program, and so none that node runs.
bool isProgram(const std::string& path);

/// What a script is to be run with that is none for node, by its first line or its name: "python3"; nothing for others.
/// The file need not exist.
std::optional<std::string> foreignInterpreter(const std::string& path);

} // namespace cli
