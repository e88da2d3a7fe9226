#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace foundation {

/// Whether a writer puts a backslash before a slash. JSON means the same either way.
enum class JSONSlashes { plain, escaped };

/// Writes JSON text piece by piece into memory of the caller's, which must be large enough: nothing is checked here. It
/// writes strings and numbers; what stands around them comes from the caller, as literals.
class JSONWriter {
public:
    static constexpr std::size_t longestNumber = 20; // bytes

    /// The most bytes that `string(text)` writes.
    static constexpr std::size_t roomFor(std::string_view text) { return longestEscape * text.size() + 2; }

    explicit JSONWriter(char* at, JSONSlashes slashes = JSONSlashes::plain)
        : at_(at), escapes_(slashes == JSONSlashes::escaped ? slashEscapes : plainEscapes) {}

    /// Where the next byte goes.
    char* at() const { return at_; }

    /// Text that is JSON as it stands.
    template <std::size_t size>
    void literal(const char (&text)[size]) {
        std::memcpy(at_, text, size - 1);
        at_ += size - 1;
    }

    void number(std::int64_t number) { at_ = std::to_chars(at_, at_ + longestNumber, number).ptr; }

    /// The text in quotes. False if it is not UTF-8: what was written then is no JSON.
    [[nodiscard]] bool string(std::string_view text) {
        char* at = at_;
        unsigned char bits = 0;
        *at++ = '"';
        for (const char c : text) {
            bits |= static_cast<unsigned char>(c);
            const char escape = escapes_[static_cast<unsigned char>(c)];
            if (escape == 0) {
                *at++ = c;
                continue;
            }
            *at++ = '\\';
            *at++ = escape;
            if (escape == 'u')
                at = numberOf(c, at);
        }
        *at++ = '"';
        at_ = at;
        return bits < 0x80 || isUtf8(text);
    }

private:
    // For each character of a string: 0 if it stands as it is, 'u' for an escape with its number, otherwise the
    // character behind the backslash.
    using Escapes = std::array<char, 256>;

    static constexpr Escapes makeEscapes(JSONSlashes slashes) {
        Escapes escapes{};
        for (std::size_t control = 0; control < 0x20; ++control)
            escapes[control] = 'u';
        escapes['\b'] = 'b';
        escapes['\f'] = 'f';
        escapes['\n'] = 'n';
        escapes['\r'] = 'r';
        escapes['\t'] = 't';
        escapes['"'] = '"';
        escapes['\\'] = '\\';
        if (slashes == JSONSlashes::escaped)
            escapes['/'] = '/';
        return escapes;
    }

    static char* numberOf(char c, char* at) {
        static constexpr char hex[] = "0123456789abcdef";
        *at++ = '0';
        *at++ = '0';
        *at++ = hex[c >> 4];
        *at++ = hex[c & 15];
        return at;
    }

    static bool isUtf8(std::string_view text);

    static constexpr std::size_t longestEscape = 6; // \u001f
    static const Escapes plainEscapes;
    static const Escapes slashEscapes;

    char* at_;
    const Escapes& escapes_;
};

inline constexpr JSONWriter::Escapes JSONWriter::plainEscapes = JSONWriter::makeEscapes(JSONSlashes::plain);
inline constexpr JSONWriter::Escapes JSONWriter::slashEscapes = JSONWriter::makeEscapes(JSONSlashes::escaped);

/// `text` as a JSON string with its quotes, slashes as they are. Bytes that are not UTF-8 are replaced by U+FFFD.
std::string jsonString(std::string_view text);

} // namespace foundation
