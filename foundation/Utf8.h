#pragma once

#include <string_view>

namespace foundation {

/// True if `text` is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text);

} // namespace foundation
