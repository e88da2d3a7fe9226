#pragma once

#include <string_view>

namespace foundation::base64 {

inline constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace foundation::base64
