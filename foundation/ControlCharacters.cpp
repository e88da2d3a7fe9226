#include "foundation/ControlCharacters.h"

#include "foundation/Utf8.h"

#include <array>
#include <cstdio>

namespace foundation {
namespace {

std::string escaped(const char* form, unsigned number) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), form, number);
    return text.data();
}

std::string shownByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n' || c == '\t')
        return c == '\n' ? "\\n" : "\\t";
    return byte < 0x20 || byte >= 0x7f ? escaped("\\x%02x", byte) : std::string(1, c);
}

/// A character of two bytes or more.
std::string shownCharacter(std::string_view character) {
    const auto bits = [&](std::size_t i, unsigned mask) { return static_cast<unsigned char>(character[i]) & mask; };
    const unsigned number = character.size() == 2   ? bits(0, 0x1f) << 6 | bits(1, 0x3f)
                            : character.size() == 3 ? bits(0, 0x0f) << 12 | bits(1, 0x3f) << 6 | bits(2, 0x3f)
                                                    : 0x10000;
    const bool control =
        number < 0xa0 || (number >= 0x2028 && number <= 0x202e) || (number >= 0x2066 && number <= 0x2069);
    return control ? escaped("\\u%04x", number) : std::string(character);
}

} // namespace

std::string escapedControls(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t length = utf8CharacterLength(text);
        shown += length > 1 ? shownCharacter(text.substr(0, length)) : shownByte(text.front());
        text.remove_prefix(length > 1 ? length : 1);
    }
    return shown;
}

} // namespace foundation
