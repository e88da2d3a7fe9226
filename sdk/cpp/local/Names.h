#pragma once

#include <string>
#include <string_view>

namespace local {

/// One spelling for all that a store may take for the same name: case, ligatures and other forms of letters, invisible
/// characters, dots and spaces at the end. Letters beyond ASCII are told apart by all but their case. Needs a locale in
/// UTF-8 (LC_CTYPE).
std::string folded(std::string_view name);

/// The name with its letters in the other case; the same name if it has none.
std::string inOtherCase(std::string_view name);

} // namespace local
