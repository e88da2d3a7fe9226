#include "foundation/Base64Kernels.h"

#if defined(__aarch64__)

#include "foundation/Base64Alphabet.h"
#include "foundation/Base64Escapes.h"

#include <arm_neon.h>
#include <array>
#include <bit>

namespace foundation::base64 {
namespace {

constexpr std::size_t blockBytes = 48;
constexpr std::size_t blockChars = 64;

// The number of each ASCII character, 0xFF for those outside the alphabet; two tables of 64 as the look-up takes them.
constexpr auto numberOf = [] {
    std::array<std::uint8_t, 128> table{};
    table.fill(0xFF);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    return table;
}();

uint8x16x4_t table(const std::uint8_t* entries) {
    return {{vld1q_u8(entries), vld1q_u8(entries + 16), vld1q_u8(entries + 32), vld1q_u8(entries + 48)}};
}

// One bit per character, the first one lowest.
std::uint8_t slashesAmong(uint8x8_t eight) {
    static constexpr std::array<std::uint8_t, 8> bits{1, 2, 4, 8, 16, 32, 64, 128};
    return vaddv_u8(vand_u8(vceq_u8(eight, vdup_n_u8('/')), vld1_u8(bits.data())));
}

// Each store leaves rubbish behind its characters that the next one covers.
char* storeEscaped(const uint8x16x4_t& characters, char* out) {
    std::array<std::uint8_t, blockChars> text;
    vst4q_u8(text.data(), characters);
    for (std::size_t i = 0; i < blockChars; i += 8) {
        const uint8x8_t eight = vld1_u8(text.data() + i);
        const std::uint8_t slashes = slashesAmong(eight);
        const uint8x16_t places = vld1q_u8(escapes[slashes].data());
        const uint8x16_t escaped = vqtbl1q_u8(vcombine_u8(eight, vdup_n_u8('\\')), places);
        vst1q_u8(reinterpret_cast<std::uint8_t*>(out), escaped);
        out += 8 + std::popcount(slashes);
    }
    return out;
}

// 0xFF in each byte if any character is a slash.
bool anySlash(const uint8x16x4_t& characters) {
    const uint8x16_t slash = vdupq_n_u8('/');
    const uint8x16_t first = vorrq_u8(vceqq_u8(characters.val[0], slash), vceqq_u8(characters.val[1], slash));
    const uint8x16_t second = vorrq_u8(vceqq_u8(characters.val[2], slash), vceqq_u8(characters.val[3], slash));
    return vmaxvq_u8(vorrq_u8(first, second)) != 0;
}

// The characters of one block.
uint8x16x4_t characters(const std::uint8_t* in, const uint8x16x4_t& letters) {
    const uint8x16_t sixBits = vdupq_n_u8(0x3F);
    const uint8x16x3_t bytes = vld3q_u8(in);
    uint8x16x4_t text;
    text.val[0] = vshrq_n_u8(bytes.val[0], 2);
    text.val[1] = vandq_u8(vsliq_n_u8(vshrq_n_u8(bytes.val[1], 4), bytes.val[0], 4), sixBits);
    text.val[2] = vandq_u8(vsliq_n_u8(vshrq_n_u8(bytes.val[2], 6), bytes.val[1], 2), sixBits);
    text.val[3] = vandq_u8(bytes.val[2], sixBits);
    for (uint8x16_t& part : text.val)
        part = vqtbl4q_u8(letters, part);
    return text;
}

// Numbers of a vector of characters: the two halves of ASCII are looked up apart, and what lies in neither stays 0xFF.
uint8x16_t numbers(uint8x16_t characters, const uint8x16x4_t& low, const uint8x16x4_t& high) {
    const uint8x16_t fromLow = vqtbx4q_u8(vdupq_n_u8(0xFF), low, characters);
    return vqtbx4q_u8(fromLow, high, vsubq_u8(characters, vdupq_n_u8(64)));
}

} // namespace

Progress encodeNeon(const std::uint8_t* in, std::size_t size, char* out) {
    char* const start = out;
    const uint8x16x4_t letters = table(reinterpret_cast<const std::uint8_t*>(alphabet.data()));
    std::size_t read = 0;
    for (; size - read >= blockBytes; read += blockBytes) {
        const uint8x16x4_t text = characters(in + read, letters);
        if (anySlash(text)) {
            out = storeEscaped(text, out);
        } else {
            vst4q_u8(reinterpret_cast<std::uint8_t*>(out), text);
            out += blockChars;
        }
    }
    return {read, static_cast<std::size_t>(out - start)};
}

Progress encodePlainNeon(const std::uint8_t* in, std::size_t size, char* out) {
    const uint8x16x4_t letters = table(reinterpret_cast<const std::uint8_t*>(alphabet.data()));
    Progress done;
    for (; size - done.read >= blockBytes; done.read += blockBytes, done.written += blockChars)
        vst4q_u8(reinterpret_cast<std::uint8_t*>(out + done.written), characters(in + done.read, letters));
    return done;
}

Progress decodeNeon(const char* in, std::size_t size, std::uint8_t* out, std::size_t room) {
    const uint8x16x4_t low = table(numberOf.data());
    const uint8x16x4_t high = table(numberOf.data() + 64);
    Progress done;
    while (size - done.read > blockChars && room - done.written >= blockBytes) {
        uint8x16x4_t text = vld4q_u8(reinterpret_cast<const std::uint8_t*>(in + done.read));
        for (uint8x16_t& part : text.val)
            part = numbers(part, low, high);
        const uint8x16_t all = vorrq_u8(vorrq_u8(text.val[0], text.val[1]), vorrq_u8(text.val[2], text.val[3]));
        if (vmaxvq_u8(all) > 0x3F)
            break;
        uint8x16x3_t bytes;
        bytes.val[0] = vsliq_n_u8(vshrq_n_u8(text.val[1], 4), text.val[0], 2);
        bytes.val[1] = vsliq_n_u8(vshrq_n_u8(text.val[2], 2), text.val[1], 4);
        bytes.val[2] = vsliq_n_u8(text.val[3], text.val[2], 6);
        vst3q_u8(out + done.written, bytes);
        done.read += blockChars;
        done.written += blockBytes;
    }
    return done;
}

} // namespace foundation::base64

#endif
