#include "Escapes.h"

#include <bit>
#include <cstdint>
#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace kemvi::kit {
namespace {

constexpr std::size_t blockSize = 16;

struct Progress {
    std::size_t read = 0;
    std::size_t written = 0;
    bool isSound = true;              // each backslash stands before a slash, as far as it was read
    std::uint32_t slashIsNextOne = 0; // 1 if what was read ends with a backslash
};

#if defined(__x86_64__)

void moveBlock(const char* from, char* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}

std::uint32_t placesOf(char c, __m128i block) {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(c))));
}

// What follows a backslash is stored in its place; where there is none, that is rubbish behind the block.
Progress copyBlocks(const char* in, std::size_t size, char* out) {
    Progress done;
    for (; size - done.read >= blockSize; done.read += blockSize) {
        const char* const from = in + done.read;
        char* to = out + done.written;
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        const std::uint32_t found = placesOf('\\', block);
        const std::uint32_t mustBeSlashes = found << 1 | done.slashIsNextOne;
        done.isSound &= (mustBeSlashes & 0xFFFF & ~placesOf('/', block)) == 0;
        done.slashIsNextOne = mustBeSlashes >> blockSize;
        const auto lane = static_cast<std::size_t>(std::countr_zero(found | 1U << blockSize));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
        moveBlock(from + lane + 1, to + lane);
        done.written += found == 0 ? blockSize : blockSize - 1;
        for (std::uint32_t more = found & (found - 1); more != 0; more &= more - 1) {
            const auto next = static_cast<std::size_t>(std::countr_zero(more));
            moveBlock(from + next + 1, --to + next);
            --done.written;
        }
    }
    return done;
}

#else

Progress copyBlocks(const char*, std::size_t, char*) {
    return {};
}

#endif

} // namespace

std::optional<std::size_t> copyUnescapingSlashes(std::string_view text, char* out) {
    Progress done = copyBlocks(text.data(), text.size(), out);
    bool slashIsNext = done.slashIsNextOne != 0;
    for (; done.read < text.size(); ++done.read) {
        const char c = text[done.read];
        done.isSound &= !slashIsNext || c == '/';
        slashIsNext = c == '\\';
        out[done.written] = c;
        done.written += slashIsNext ? 0 : 1;
    }
    if (!done.isSound || slashIsNext)
        return std::nullopt;
    return done.written;
}

} // namespace kemvi::kit
