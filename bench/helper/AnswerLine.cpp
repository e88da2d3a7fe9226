#include "AnswerLine.h"

#include "foundation/Base64.h"

#include <cstring>

namespace bench {

void AnswerLine::begin(std::string_view id) {
    text_.assign("{\"id\":\"").append(id).append("\",\"ok\":true");
}

void AnswerLine::fail(std::string_view id, std::string_view code, std::string_view message) {
    text_.assign("{\"id\":\"").append(id).append("\",\"ok\":false,\"error\":{\"code\":\"").append(code);
    raw("\",\"message\":").quoted(message).raw("}");
}

AnswerLine& AnswerLine::raw(std::string_view text) {
    text_ += text;
    return *this;
}

AnswerLine& AnswerLine::quoted(std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    text_ += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\')
            text_.append({'\\', c});
        else if (static_cast<unsigned char>(c) < 0x20)
            text_.append("\\u00").append({hex[c >> 4], hex[c & 15]});
        else
            text_ += c;
    }
    text_ += '"';
    return *this;
}

AnswerLine& AnswerLine::number(std::int64_t value) {
    text_ += std::to_string(value);
    return *this;
}

AnswerLine& AnswerLine::base64(std::span<const std::byte> data) {
    const std::size_t room = foundation::base64::escapedRoom(data.size());
    if (encoded_.size() < room)
        encoded_.resize(room);
    const char* from = encoded_.data();
    const char* const end = from + foundation::base64::encodeEscapingSlashes(data, encoded_.data());
    while (from < end) {
        const auto left = static_cast<std::size_t>(end - from);
        const void* const escape = std::memchr(from, '\\', left);
        const std::size_t plain = escape == nullptr ? left : static_cast<const char*>(escape) - from;
        text_.append(from, plain);
        from += plain + 1;
    }
    return *this;
}

bool AnswerLine::send(foundation::FileHandle& output) {
    text_ += "}\n";
    return output.write(text_);
}

} // namespace bench
