#pragma once

#include <cstddef>
#include <string_view>

namespace foundation {

/// True if `text` is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text);

/// The length in bytes of the well-formed character at the start of `text`; 0 if there is none.
std::size_t utf8CharacterLength(std::string_view text);

} // namespace foundation
