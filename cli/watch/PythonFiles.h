#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The files that a script in Python, which lies in `folder`, imports: modules and the packages around them. Modules
/// named from the beginning are looked for in `home`, the folder of the script that was started, and left alone if they
/// are not there: they may be those of the language. A module named from its package (`from .a import b`) is given also
/// if it is not there.
std::vector<std::string> pythonFilesOf(std::string_view script, const std::filesystem::path& folder,
                                       const std::filesystem::path& home);

} // namespace cli
