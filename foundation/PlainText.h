#pragma once

#include <cstddef>
#include <string_view>

namespace foundation {

/// The number of characters at the front of `text` that stand for themselves inside a JSON string: printable ASCII (and
/// DEL) but the quote and the backslash. At memory speed, for payloads.
std::size_t plainRunLength(std::string_view text);

} // namespace foundation
