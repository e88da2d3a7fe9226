#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace recording {

using Digest = std::array<unsigned char, 32>;

/// SHA-256 of the pieces, one behind the other.
Digest sha256(std::span<const std::string_view> pieces);

/// The same of one piece, in lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

} // namespace recording
