#include "foundation/PlainText.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#include <cstdint>
#endif

namespace foundation {
namespace {

bool isPlain(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
}

// The length of the plain text at the front, in whole blocks.
#if defined(__SSE2__)

constexpr std::size_t blockSize = 64;

// Nonzero bytes for the characters of sixteen that are not plain. As signed numbers, control characters and all that is
// not ASCII lie below the space.
__m128i special(const char* sixteen) {
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sixteen));
    const __m128i outside = _mm_cmplt_epi8(text, _mm_set1_epi8(0x20));
    const __m128i quote = _mm_cmpeq_epi8(text, _mm_set1_epi8('"'));
    const __m128i backslash = _mm_cmpeq_epi8(text, _mm_set1_epi8('\\'));
    return _mm_or_si128(outside, _mm_or_si128(quote, backslash));
}

std::size_t plainBlocks(std::string_view text) {
    std::size_t at = 0;
    for (; text.size() - at >= blockSize; at += blockSize) {
        const char* block = text.data() + at;
        const __m128i first = _mm_or_si128(special(block), special(block + 16));
        const __m128i second = _mm_or_si128(special(block + 32), special(block + 48));
        if (_mm_movemask_epi8(_mm_or_si128(first, second)) != 0)
            break;
    }
    return at;
}

#elif defined(__aarch64__)

constexpr std::size_t blockSize = 16;

std::size_t plainBlocks(std::string_view text) {
    std::size_t at = 0;
    for (; text.size() - at >= blockSize; at += blockSize) {
        const uint8x16_t block = vld1q_u8(reinterpret_cast<const std::uint8_t*>(text.data() + at));
        // As signed numbers, control characters and all that is not ASCII lie below the space.
        const uint8x16_t outside = vcltq_s8(vreinterpretq_s8_u8(block), vdupq_n_s8(0x20));
        const uint8x16_t quote = vceqq_u8(block, vdupq_n_u8('"'));
        const uint8x16_t backslash = vceqq_u8(block, vdupq_n_u8('\\'));
        if (vmaxvq_u8(vorrq_u8(outside, vorrq_u8(quote, backslash))) != 0)
            break;
    }
    return at;
}

#else

std::size_t plainBlocks(std::string_view) {
    return 0;
}

#endif

} // namespace

std::size_t plainRunLength(std::string_view text) {
    std::size_t at = plainBlocks(text);
    while (at < text.size() && isPlain(text[at]))
        ++at;
    return at;
}

} // namespace foundation
