#include "foundation/Base64Alphabet.h"
#include "foundation/Base64Kernels.h"

#include <array>
#include <cstring>

namespace foundation::base64 {
namespace {

constexpr std::uint32_t invalid = 0xFF000000;

// Two characters for twelve bits.
struct Pair {
    char first;
    char second;
};

constexpr auto pairs = [] {
    std::array<Pair, 4096> table{};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = {alphabet[i >> 6], alphabet[i & 63]};
    return table;
}();

// The bits of a character in the place where the 24-bit group has them; one table per place.
constexpr auto places = [] {
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (auto& table : tables)
        table.fill(invalid);
    for (std::uint32_t i = 0; i < 64; ++i)
        for (std::uint32_t place = 0; place < 4; ++place)
            tables[place][static_cast<unsigned char>(alphabet[i])] = i << (6 * (3 - place));
    return tables;
}();

// The characters of three bytes.
struct Four {
    Pair high;
    Pair low;
};

Four charactersOf(const std::uint8_t* in) {
    const std::uint32_t group = (std::uint32_t{in[0]} << 16) | (std::uint32_t{in[1]} << 8) | in[2];
    return {pairs[group >> 12], pairs[group & 0xFFF]};
}

char* put(char* out, char c) {
    if (c == '/')
        *out++ = '\\';
    *out++ = c;
    return out;
}

} // namespace

Progress encodeScalar(const std::uint8_t* in, std::size_t size, char* out) {
    char* const start = out;
    const std::size_t whole = size - size % 3;
    for (std::size_t i = 0; i < whole; i += 3) {
        const auto [high, low] = charactersOf(in + i);
        if (high.first != '/' && high.second != '/' && low.first != '/' && low.second != '/') {
            std::memcpy(out, &high, 2);
            std::memcpy(out + 2, &low, 2);
            out += 4;
        } else {
            out = put(put(put(put(out, high.first), high.second), low.first), low.second);
        }
    }
    return {whole, static_cast<std::size_t>(out - start)};
}

Progress encodePlainScalar(const std::uint8_t* in, std::size_t size, char* out) {
    const std::size_t groups = size / 3;
    for (std::size_t i = 0; i < groups; ++i) {
        const Four four = charactersOf(in + 3 * i);
        std::memcpy(out + 4 * i, &four, sizeof four);
    }
    return {3 * groups, 4 * groups};
}

Progress decodeScalar(const char* in, std::size_t size, std::uint8_t* out, std::size_t room) {
    Progress done;
    while (size - done.read > 4 && room - done.written >= 3) {
        const auto at = [&](std::size_t place) {
            return places[place][static_cast<unsigned char>(in[done.read + place])];
        };
        const std::uint32_t group = at(0) | at(1) | at(2) | at(3);
        if (group >= invalid)
            break;
        out[done.written] = static_cast<std::uint8_t>(group >> 16);
        out[done.written + 1] = static_cast<std::uint8_t>(group >> 8);
        out[done.written + 2] = static_cast<std::uint8_t>(group);
        done.read += 4;
        done.written += 3;
    }
    return done;
}

const Kernels scalarKernels{"scalar", encodeScalar, encodePlainScalar, decodeScalar};

} // namespace foundation::base64
