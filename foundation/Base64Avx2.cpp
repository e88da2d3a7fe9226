#include "foundation/Base64Kernels.h"

#if defined(__x86_64__)

#include "foundation/Base64Escapes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <immintrin.h>

#define KEMVI_AVX2 __attribute__((target("avx2,bmi,popcnt")))

namespace foundation::base64 {
namespace {

constexpr std::size_t blockBytes = 24;
constexpr std::size_t blockChars = 32;
constexpr std::size_t loadOverrun = 4; // a block is loaded as two runs of 16 bytes, 12 bytes apart

// Spreads 2 x 12 bytes over 32 six-bit numbers, one per byte.
KEMVI_AVX2 __m256i sixBitNumbers(const std::uint8_t* in) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12));
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0, 2, 1, 4, 3, 5, 4,
                                            7, 6, 8, 7, 10, 9, 11, 10);
    const __m256i groups = _mm256_shuffle_epi8(_mm256_set_m128i(high, low), spread);
    // Multiplications shift each number by an amount of its own.
    const __m256i odd =
        _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i even =
        _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(odd, even);
}

// Adds to each number the distance to its character, by range: A-Z, a-z, each digit and sign.
KEMVI_AVX2 __m256i characters(__m256i numbers) {
    const __m256i distances = _mm256_setr_epi8(65, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0, 65, 71,
                                               -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0);
    const __m256i range = _mm256_subs_epu8(numbers, _mm256_set1_epi8(51));
    const __m256i beyondUpperCase = _mm256_cmpgt_epi8(numbers, _mm256_set1_epi8(25));
    const __m256i selector = _mm256_sub_epi8(range, beyondUpperCase);
    return _mm256_add_epi8(numbers, _mm256_shuffle_epi8(distances, selector));
}

// Stores eight characters, behind which there is a backslash in the vector.
KEMVI_AVX2 void storeEight(__m128i eight, std::uint32_t slashes, char* out) {
    const auto* places = reinterpret_cast<const __m128i*>(escapes[slashes & 0xFF].data());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(eight, _mm_loadu_si128(places)));
}

// Escapes any number of slashes. Each store leaves rubbish behind its characters that the next one covers.
KEMVI_AVX2 void storeManyEscaped(__m256i block, std::uint32_t slashes, char* out) {
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i low = _mm256_castsi256_si128(block);
    const __m128i high = _mm256_extracti128_si256(block, 1);
    storeEight(_mm_unpacklo_epi64(low, backslash), slashes, out);
    storeEight(_mm_unpackhi_epi64(low, backslash), slashes >> 8, out + 8 + std::popcount(slashes & 0xFF));
    storeEight(_mm_unpacklo_epi64(high, backslash), slashes >> 16, out + 16 + std::popcount(slashes & 0xFFFF));
    storeEight(_mm_unpackhi_epi64(high, backslash), slashes >> 24, out + 24 + std::popcount(slashes & 0xFFFFFF));
}

constexpr std::size_t pieceBlocks = 128;

// Text before its slashes are escaped. It goes through memory because a vector is moved by one character, beyond one
// of many places, with the least work by loading it from there.
struct Piece {
    alignas(blockChars) std::array<char, (pieceBlocks + 1) * blockChars> text; // the last block is rubbish
    std::array<std::uint32_t, pieceBlocks> slashes;                            // one bit per character
    std::size_t blocks = 0;
    bool anySlash = false;
};

KEMVI_AVX2 void encodePiece(const std::uint8_t* in, Piece& piece) {
    std::uint32_t all = 0;
    for (std::size_t i = 0; i < piece.blocks; ++i) {
        const __m256i block = characters(sixBitNumbers(in + i * blockBytes));
        const __m256i found = _mm256_cmpeq_epi8(block, _mm256_set1_epi8('/'));
        _mm256_store_si256(reinterpret_cast<__m256i*>(piece.text.data() + i * blockChars), block);
        piece.slashes[i] = static_cast<std::uint32_t>(_mm256_movemask_epi8(found));
        all |= piece.slashes[i];
    }
    piece.anySlash = all != 0;
}

// With one slash or none in a block, as in most of random data, nothing depends on a branch: what begins with the slash
// is stored behind a backslash in its place, and if there is no slash, that is rubbish behind the block.
KEMVI_AVX2 char* storeEscaped(const Piece& piece, char* out) {
    for (std::size_t i = 0; i < piece.blocks; ++i) {
        const char* const text = piece.text.data() + i * blockChars;
        const __m256i block = _mm256_load_si256(reinterpret_cast<const __m256i*>(text));
        const std::uint32_t slashes = piece.slashes[i];
        if ((slashes & (slashes - 1)) == 0) {
            const auto place = static_cast<std::size_t>(std::countr_zero(slashes)); // the block's end if there is none
            const __m256i slashAndOn = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + place));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), block);
            out[place] = '\\';
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + place + 1), slashAndOn);
        } else {
            storeManyEscaped(block, slashes, out);
        }
        out += blockChars + static_cast<std::size_t>(std::popcount(slashes));
    }
    return out;
}

} // namespace

KEMVI_AVX2 Progress encodeAvx2(const std::uint8_t* in, std::size_t size, char* out) {
    char* const start = out;
    std::size_t read = 0;
    Piece piece;
    while (size - read >= blockBytes + loadOverrun) {
        piece.blocks = std::min(pieceBlocks, (size - read - loadOverrun) / blockBytes);
        encodePiece(in + read, piece);
        if (piece.anySlash) {
            out = storeEscaped(piece, out);
        } else {
            std::memcpy(out, piece.text.data(), piece.blocks * blockChars);
            out += piece.blocks * blockChars;
        }
        read += piece.blocks * blockBytes;
    }
    return {read, static_cast<std::size_t>(out - start)};
}

KEMVI_AVX2 Progress encodePlainAvx2(const std::uint8_t* in, std::size_t size, char* out) {
    Progress done;
    for (; size - done.read >= blockBytes + loadOverrun; done.read += blockBytes, done.written += blockChars) {
        const __m256i block = characters(sixBitNumbers(in + done.read));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done.written), block);
    }
    return done;
}

KEMVI_AVX2 Progress decodeAvx2(const char* in, std::size_t size, std::uint8_t* out, std::size_t room) {
    // A character is valid if the sets of its low and high half byte have no bit in common.
    const __m256i lowSets = _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A,
                                             0x1B, 0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                             0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m256i highSets = _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10,
                                              0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                              0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const __m256i distances = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4,
                                               -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m256i pack = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2, 1, 0, 6, 5, 4, 10,
                                          9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i slash = _mm256_set1_epi8('/');
    Progress done;
    while (size - done.read > blockChars && room - done.written >= blockChars) {
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + done.read));
        const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0F));
        const __m256i low = _mm256_and_si256(text, _mm256_set1_epi8(0x0F));
        const __m256i lowSet = _mm256_shuffle_epi8(lowSets, low);
        const __m256i highSet = _mm256_shuffle_epi8(highSets, high);
        if (_mm256_testz_si256(lowSet, highSet) == 0)
            break;
        // '+' and '/' share their high half; the comparison moves '/' to an entry of its own.
        const __m256i entry = _mm256_add_epi8(_mm256_cmpeq_epi8(text, slash), high);
        const __m256i numbers = _mm256_add_epi8(text, _mm256_shuffle_epi8(distances, entry));
        const __m256i pairs = _mm256_maddubs_epi16(numbers, _mm256_set1_epi32(0x01400140));
        const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const __m256i packed = _mm256_shuffle_epi8(groups, pack);
        const __m256i bytes = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done.written), bytes);
        done.read += blockChars;
        done.written += blockBytes;
    }
    return done;
}

} // namespace foundation::base64

#endif
