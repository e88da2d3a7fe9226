#include "foundation/Base64.h"

#include "foundation/Base64Alphabet.h"
#include "foundation/Base64Kernels.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace foundation::base64 {
namespace {

constexpr std::size_t scratchSize = 3072; // bytes; a multiple of 3

#if defined(__x86_64__)
bool hasAvx2() {
    // Every processor with AVX2 has the other two; a virtual machine may hide them.
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt");
}
#endif

// The number of padding characters at the end of a text whose length is a multiple of four.
std::size_t paddingOf(std::string_view text) {
    if (!text.ends_with('='))
        return 0;
    return text.ends_with("==") ? 2 : 1;
}

enum class Slashes { plain, escaped };

// The last one or two bytes, as four characters.
char* encodeRest(const std::uint8_t* in, std::size_t size, Slashes slashes, char* out) {
    const std::uint32_t group = (std::uint32_t{in[0]} << 16) | (size > 1 ? std::uint32_t{in[1]} << 8 : 0);
    for (std::size_t place = 0; place <= size; ++place) {
        const char c = alphabet[(group >> (6 * (3 - place))) & 63];
        if (c == '/' && slashes == Slashes::escaped)
            *out++ = '\\';
        *out++ = c;
    }
    for (std::size_t place = size; place < 3; ++place)
        *out++ = '=';
    return out;
}

// Decodes the last group, which may be padded. The number of bytes, or nothing if it is not valid.
std::optional<std::size_t> decodeLast(std::string_view group, std::uint8_t* out) {
    const std::size_t padding = paddingOf(group);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 4 - padding; ++i) {
        const std::size_t value = alphabet.find(group[i]);
        if (value == std::string_view::npos)
            return std::nullopt;
        bits |= static_cast<std::uint32_t>(value) << (6 * (3 - i));
    }
    const std::array<std::uint8_t, 3> bytes{static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 8),
                                            static_cast<std::uint8_t>(bits)};
    std::memcpy(out, bytes.data(), 3 - padding);
    return 3 - padding;
}

using Encoder = Progress (*)(const std::uint8_t* in, std::size_t size, char* out);

// `fast` as far as it goes, `portable` for the whole groups that it leaves over.
std::size_t encodeAll(Encoder fast, Encoder portable, Slashes slashes, std::span<const std::byte> data, char* out) {
    const auto* in = reinterpret_cast<const std::uint8_t*>(data.data());
    Progress done = fast(in, data.size(), out);
    const Progress rest = portable(in + done.read, data.size() - done.read, out + done.written);
    done.read += rest.read;
    char* end = out + done.written + rest.written;
    if (done.read < data.size())
        end = encodeRest(in + done.read, data.size() - done.read, slashes, end);
    return static_cast<std::size_t>(end - out);
}

Progress decodeGroups(const Kernels& kernels, std::string_view text, std::uint8_t* out, std::size_t room) {
    Progress done = kernels.decode(text.data(), text.size(), out, room);
    const Progress rest =
        decodeScalar(text.data() + done.read, text.size() - done.read, out + done.written, room - done.written);
    return {done.read + rest.read, done.written + rest.written};
}

// Decodes what lies beyond the caller's memory piece by piece into scratch memory, to check it, and keeps the bytes
// that still fit (fewer than one group). True if all of it is valid.
bool decodeBeyond(const Kernels& kernels, std::string_view text, std::span<std::uint8_t> into) {
    std::array<std::uint8_t, scratchSize + 3> scratch;
    std::size_t kept = 0;
    while (!text.empty()) {
        Progress done = decodeGroups(kernels, text, scratch.data(), scratchSize);
        text.remove_prefix(done.read);
        if (done.read == 0 || text.size() == 4) {
            const auto last = text.size() == 4 ? decodeLast(text, scratch.data() + done.written) : std::nullopt;
            if (!last)
                return false;
            done.written += *last;
            text = {};
        }
        const std::size_t count = std::min(done.written, into.size() - kept);
        std::copy_n(scratch.data(), count, into.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += count;
    }
    return true;
}

} // namespace

std::size_t encodeWith(const Kernels& kernels, std::span<const std::byte> data, char* out) {
    return encodeAll(kernels.encode, encodeScalar, Slashes::escaped, data, out);
}

std::size_t encodePlainWith(const Kernels& kernels, std::span<const std::byte> data, char* out) {
    return encodeAll(kernels.encodePlain, encodePlainScalar, Slashes::plain, data, out);
}

std::optional<std::size_t> decodeWith(const Kernels& kernels, std::string_view text, std::span<std::byte> into) {
    const auto total = decodedLength(text);
    if (!total || *total == 0)
        return total;
    // Vector code writes whole blocks, but nothing behind the last byte that was sent.
    into = into.first(std::min(into.size(), *total));
    auto* const out = reinterpret_cast<std::uint8_t*>(into.data());
    const Progress done = decodeGroups(kernels, text, out, into.size());
    if (!decodeBeyond(kernels, text.substr(done.read), {out + done.written, into.size() - done.written}))
        return std::nullopt;
    return total;
}

const Kernels& bestKernels() {
#if defined(__x86_64__)
    static const Kernels avx2{"AVX2", encodeAvx2, encodePlainAvx2, decodeAvx2};
    static const Kernels& best = hasAvx2() ? avx2 : scalarKernels;
    return best;
#elif defined(__aarch64__)
    static const Kernels neon{"NEON", encodeNeon, encodePlainNeon, decodeNeon};
    return neon;
#else
    return scalarKernels;
#endif
}

std::size_t encodeEscapingSlashes(std::span<const std::byte> data, char* out) {
    return encodeWith(bestKernels(), data, out);
}

std::size_t encode(std::span<const std::byte> data, char* out) {
    return encodePlainWith(bestKernels(), data, out);
}

std::optional<std::size_t> decodedLength(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    return text.size() / 4 * 3 - paddingOf(text);
}

std::optional<std::size_t> decode(std::string_view text, std::span<std::byte> into) {
    return decodeWith(bestKernels(), text, into);
}

} // namespace foundation::base64
