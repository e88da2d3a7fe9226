#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

/// The block loops of base64, in the forms that processors have. Internal to Base64.cpp and its tests.
namespace foundation::base64 {

/// How far a block loop came.
struct Progress {
    std::size_t read = 0;
    std::size_t written = 0;
};

struct Kernels {
    const char* name;
    /// Encodes a whole number of 3-byte groups from the front of `in`, as many as suit it, escaping slashes.
    Progress (*encode)(const std::uint8_t* in, std::size_t size, char* out);
    /// The same with slashes as they are.
    Progress (*encodePlain)(const std::uint8_t* in, std::size_t size, char* out);
    /// Decodes a whole number of 4-character groups from the front of `in`, none of them padded; stops where a
    /// character is invalid or where it would write beyond `room`. Never reaches the last group.
    Progress (*decode)(const char* in, std::size_t size, std::uint8_t* out, std::size_t room);
};

/// Portable code; always there, and what the others leave over is done by it.
extern const Kernels scalarKernels;

/// The fastest form that the processor this runs on has.
const Kernels& bestKernels();

/// The whole of base64 over one form of the loops: what Base64.h offers, with the best form.
std::size_t encodeWith(const Kernels& kernels, std::span<const std::byte> data, char* out);
std::size_t encodePlainWith(const Kernels& kernels, std::span<const std::byte> data, char* out);
std::optional<std::size_t> decodeWith(const Kernels& kernels, std::string_view text, std::span<std::byte> into);

Progress encodeScalar(const std::uint8_t* in, std::size_t size, char* out);
Progress encodePlainScalar(const std::uint8_t* in, std::size_t size, char* out);
Progress decodeScalar(const char* in, std::size_t size, std::uint8_t* out, std::size_t room);

#if defined(__x86_64__)
Progress encodeAvx2(const std::uint8_t* in, std::size_t size, char* out);
Progress encodePlainAvx2(const std::uint8_t* in, std::size_t size, char* out);
Progress decodeAvx2(const char* in, std::size_t size, std::uint8_t* out, std::size_t room);
#elif defined(__aarch64__)
Progress encodeNeon(const std::uint8_t* in, std::size_t size, char* out);
Progress encodePlainNeon(const std::uint8_t* in, std::size_t size, char* out);
Progress decodeNeon(const char* in, std::size_t size, std::uint8_t* out, std::size_t room);
#endif

} // namespace foundation::base64
