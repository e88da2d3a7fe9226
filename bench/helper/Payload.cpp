#include "Payload.h"

#include "foundation/Base64Alphabet.h"

#include <bit>
#include <cstdint>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace bench {
namespace {

struct Progress {
    std::size_t read = 0;
    std::size_t written = 0;
};

#if defined(__x86_64__)

// 12 bytes at a time; the arithmetic is that of foundation's encoder, which escapes.
__attribute__((target("ssse3"))) Progress encodeBlocks(const std::uint8_t* in, std::size_t size, char* out) {
    const __m128i spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m128i distances = _mm_setr_epi8(65, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0);
    Progress done;
    for (; size - done.read >= 16; done.read += 12, done.written += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + done.read));
        const __m128i groups = _mm_shuffle_epi8(bytes, spread);
        const __m128i odd =
            _mm_mulhi_epu16(_mm_and_si128(groups, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
        const __m128i even =
            _mm_mullo_epi16(_mm_and_si128(groups, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
        const __m128i numbers = _mm_or_si128(odd, even);
        const __m128i beyondUpperCase = _mm_cmpgt_epi8(numbers, _mm_set1_epi8(25));
        const __m128i range = _mm_sub_epi8(_mm_subs_epu8(numbers, _mm_set1_epi8(51)), beyondUpperCase);
        const __m128i characters = _mm_add_epi8(numbers, _mm_shuffle_epi8(distances, range));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done.written), characters);
    }
    return done;
}

Progress encodeFast(const std::uint8_t* in, std::size_t size, char* out) {
    return __builtin_cpu_supports("ssse3") ? encodeBlocks(in, size, out) : Progress{};
}

void moveBlock(const char* from, char* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}

// What follows a backslash is stored in its place; where there is none, that is rubbish behind the block.
Progress copyBlocks(const char* in, std::size_t size, char* out) {
    const __m128i backslash = _mm_set1_epi8('\\');
    Progress done;
    for (; size - done.read >= 16; done.read += 16) {
        const char* const from = in + done.read;
        char* to = out + done.written;
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        const auto found = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, backslash)));
        const auto lane = static_cast<std::size_t>(std::countr_zero(found | 1U << 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
        moveBlock(from + lane + 1, to + lane);
        done.written += found == 0 ? 16 : 15;
        for (std::uint32_t more = found & (found - 1); more != 0; more &= more - 1) {
            const auto next = static_cast<std::size_t>(std::countr_zero(more));
            moveBlock(from + next + 1, --to + next);
            --done.written;
        }
    }
    return done;
}

#else

Progress encodeFast(const std::uint8_t*, std::size_t, char*) {
    return {};
}

Progress copyBlocks(const char*, std::size_t, char*) {
    return {};
}

#endif

} // namespace

std::size_t encodePayload(std::span<const std::byte> data, char* out) {
    const auto* const in = reinterpret_cast<const std::uint8_t*>(data.data());
    Progress done = encodeFast(in, data.size(), out);
    for (; done.read < data.size(); done.read += 3) {
        const std::size_t left = data.size() - done.read;
        const std::uint32_t group = std::uint32_t{in[done.read]} << 16 |
                                    (left > 1 ? std::uint32_t{in[done.read + 1]} << 8 : 0) |
                                    (left > 2 ? std::uint32_t{in[done.read + 2]} : 0);
        for (std::size_t place = 0; place < 4; ++place)
            out[done.written++] = place <= left ? foundation::base64::alphabet[group >> (6 * (3 - place)) & 63] : '=';
    }
    return done.written;
}

std::size_t copyWithoutBackslashes(std::string_view text, char* out) {
    Progress done = copyBlocks(text.data(), text.size(), out);
    for (; done.read < text.size(); ++done.read) {
        out[done.written] = text[done.read];
        done.written += text[done.read] != '\\' ? 1 : 0;
    }
    return done.written;
}

} // namespace bench
