#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace kemvi::kit {

/// Room behind what is read and behind what is written that `copyUnescapingSlashes` may touch, in bytes.
inline constexpr std::size_t copySlack = 64;

/// Copies `text`, a JSON string without its quotes in which nothing but slashes is escaped, with the backslashes left
/// out. The length of the copy, which is never longer; nothing if a backslash stands before anything else.
std::optional<std::size_t> copyUnescapingSlashes(std::string_view text, char* out);

} // namespace kemvi::kit
