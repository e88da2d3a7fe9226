#include "helper/HelperRequest.h"

#include "foundation/DecodingError.h"
#include "foundation/Utf8.h"

#include <array>
#include <charconv>
#include <cstring>

namespace kemvi {
namespace {

constexpr std::size_t longestEscape = 6; // \u001f
constexpr std::size_t longestNumber = 20;
constexpr std::size_t roomForKeys = 512; // all keys with what stands around them, and the numbers

// For each character of a JSON string: 0 if it stands as it is, 'u' for an escape with its number, otherwise the
// character behind the backslash.
constexpr std::array<char, 256> makeEscapes() {
    std::array<char, 256> escapes{};
    for (std::size_t control = 0; control < 0x20; ++control)
        escapes[control] = 'u';
    escapes['\b'] = 'b';
    escapes['\f'] = 'f';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\t'] = 't';
    for (const char itself : {'"', '\\', '/'})
        escapes[static_cast<unsigned char>(itself)] = itself;
    return escapes;
}

constexpr std::array<char, 256> escapes = makeEscapes();

// Writes into memory that is known to be large enough.
class LineWriter {
public:
    explicit LineWriter(char* at) : at_(at) {}

    char* at() const { return at_; }

    template <std::size_t size>
    void literal(const char (&text)[size]) {
        std::memcpy(at_, text, size - 1);
        at_ += size - 1;
    }

    void value(std::int64_t number) { at_ = std::to_chars(at_, at_ + longestNumber, number).ptr; }

    void value(const std::string& text) {
        unsigned char bits = 0;
        *at_++ = '"';
        for (const char c : text) {
            bits |= static_cast<unsigned char>(c);
            if (const char escape = escapes[static_cast<unsigned char>(c)]; escape == 0)
                *at_++ = c;
            else
                escaped(c, escape);
        }
        *at_++ = '"';
        if (bits >= 0x80 && !foundation::isValidUtf8(text))
            throw foundation::EncodingError("a string of the request is not UTF-8");
    }

    void value(const std::vector<std::string>& texts) {
        *at_++ = '[';
        for (const std::string& text : texts) {
            if (&text != &texts.front())
                *at_++ = ',';
            value(text);
        }
        *at_++ = ']';
    }

    template <std::size_t size, typename T>
    void field(const char (&key)[size], const std::optional<T>& present) {
        if (!present)
            return;
        literal(key);
        value(*present);
    }

private:
    void escaped(char c, char escape) {
        static constexpr char hex[] = "0123456789abcdef";
        *at_++ = '\\';
        *at_++ = escape;
        if (escape != 'u')
            return;
        literal("00");
        *at_++ = hex[c >> 4];
        *at_++ = hex[c & 15];
    }

    char* at_;
};

std::size_t roomFor(const std::string& text) {
    return longestEscape * text.size() + std::string_view(R"("",)").size();
}

std::size_t roomFor(const HelperRequest& request) {
    std::size_t room = roomForKeys + roomFor(request.id) + roomFor(request.op);
    for (const auto* text : {&request.path, &request.oldPath, &request.newPath, &request.mtime})
        if (*text)
            room += roomFor(**text);
    if (request.flags)
        for (const std::string& flag : *request.flags)
            room += roomFor(flag);
    return room;
}

} // namespace

HelperRequestEncoder::Line HelperRequestEncoder::encode(const HelperRequest& request) {
    text_.clear();
    text_.reserve(roomFor(request));
    LineWriter line(text_.data());
    line.literal(R"({"id":)");
    line.value(request.id);
    line.literal(R"(,"op":)");
    line.value(request.op);
    line.field(R"(,"path":)", request.path);
    line.field(R"(,"oldPath":)", request.oldPath);
    line.field(R"(,"newPath":)", request.newPath);
    line.field(R"(,"flags":)", request.flags);
    line.field(R"(,"handle":)", request.handle);
    line.field(R"(,"offset":)", request.offset);
    line.field(R"(,"length":)", request.length);
    const char* split = nullptr; // where the payload goes; without one the line is one piece
    if (request.dataBase64) {
        line.literal(R"(,"dataBase64":")");
        split = line.at();
        line.literal("\"");
    }
    line.field(R"(,"mode":)", request.mode);
    line.field(R"(,"mtime":)", request.mtime);
    line.literal("}\n");
    text_.setSize(static_cast<std::size_t>(line.at() - text_.data()));
    if (split == nullptr)
        return {text_.view(), {}, {}};
    const auto headSize = static_cast<std::size_t>(split - text_.data());
    return {text_.view().substr(0, headSize), *request.dataBase64, text_.view().substr(headSize)};
}

} // namespace kemvi
