#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

/// Standard base64 (RFC 4648 section 4: "+", "/", padded, no line breaks). All functions are safe on any thread.
namespace foundation::base64 {

/// Room that `encodeEscapingSlashes` needs for `size` bytes: every character could be a slash, and vector code writes
/// whole blocks.
constexpr std::size_t escapedRoom(std::size_t size) {
    return (size + 2) / 3 * 8 + 64;
}

/// Encodes with every slash preceded by a backslash, as the text stands inside a JSON string of a request line. Returns
/// the number of characters written to `out`.
std::size_t encodeEscapingSlashes(std::span<const std::byte> data, char* out);

/// Room that `encode` needs for `size` bytes; vector code writes whole blocks.
constexpr std::size_t plainRoom(std::size_t size) {
    return (size + 2) / 3 * 4 + 64;
}

/// Encodes with slashes as they are, as the text may stand in an answer. Returns the number of characters written to
/// `out`.
std::size_t encode(std::span<const std::byte> data, char* out);

/// Strict decoding: the alphabet above, padding required, nothing ignored. Bits of the last character beyond the last
/// byte need not be zero, as the platform's decoder has it.

/// Number of bytes that `text` stands for if it is valid, from its length and padding alone; nothing if the length is
/// not a multiple of four.
std::optional<std::size_t> decodedLength(std::string_view text);

/// Decodes `text`, storing as many of its first bytes as fit in `into`; all of the text is checked, and nothing behind
/// the last byte is touched. The total number of bytes it stands for, or nothing if it is not valid (the contents of
/// `into` are then unspecified).
std::optional<std::size_t> decode(std::string_view text, std::span<std::byte> into);

} // namespace foundation::base64
