#pragma once

#include <string>
#include <string_view>

namespace foundation {

/// `text` as it may be shown to people, as one line of UTF-8: every control character written as \n, \t, \xNN or
/// \uNNNN, also those that turn the direction of writing or break lines, and every byte that is not UTF-8 written as
/// \xNN.
std::string escapedControls(std::string_view text);

} // namespace foundation
