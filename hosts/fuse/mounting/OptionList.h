#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fusehost {

/// The options of a list, still as they are written there; a comma with a backslash before it parts none. Empty ones
/// are left out. The views are into `list`.
std::vector<std::string_view> optionsIn(std::string_view list);

/// An option, or its value, as it is meant: `\,` is a comma, `\\` a backslash, and a backslash with three octal digits
/// the character of that number (`\040` is a blank), as in fstab. Any other backslash stands for itself.
std::string unescapedOption(std::string_view option);

} // namespace fusehost
