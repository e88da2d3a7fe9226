#pragma once

#include <string>
#include <string_view>

namespace cli {

/// `text` as a JSON string with its quotes. `text` must be UTF-8; bytes that are not are replaced by U+FFFD.
std::string jsonString(std::string_view text);

} // namespace cli
