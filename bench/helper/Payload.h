#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// Base64 as the payloads of this helper have it: slashes are escaped in requests and stand as they are in answers.
namespace bench {

/// Room behind what is read and written that these functions may touch, in bytes.
inline constexpr std::size_t payloadSlack = 64;

/// Puts the padded text of `data` at `out` and returns its length, which is a multiple of 4.
std::size_t encodePayload(std::span<const std::byte> data, char* out);

/// Copies `text` without its backslashes, whatever follows them, and returns the length of the copy.
std::size_t copyWithoutBackslashes(std::string_view text, char* out);

} // namespace bench
