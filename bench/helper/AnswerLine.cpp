#include "AnswerLine.h"

#include "Payload.h"

#include <string>

namespace bench {

void AnswerLine::begin(std::string_view id) {
    text_.clear();
    raw("{\"id\":\"").raw(id).raw("\",\"ok\":true");
}

void AnswerLine::fail(std::string_view id, std::string_view code, std::string_view message) {
    text_.clear();
    raw("{\"id\":\"").raw(id).raw("\",\"ok\":false,\"error\":{\"code\":\"").raw(code);
    raw("\",\"message\":").quoted(message).raw("}");
}

AnswerLine& AnswerLine::raw(std::string_view text) {
    text_.append(text);
    return *this;
}

AnswerLine& AnswerLine::quoted(std::string_view text) {
    static constexpr std::string_view hex = "0123456789abcdef";
    raw("\"");
    for (const char c : text)
        if (c == '"' || c == '\\')
            raw("\\").raw({&c, 1});
        else if (static_cast<unsigned char>(c) < 0x20)
            raw("\\u00").raw(hex.substr(static_cast<unsigned char>(c) >> 4, 1)).raw(hex.substr(c & 15, 1));
        else
            raw({&c, 1});
    return raw("\"");
}

AnswerLine& AnswerLine::number(std::int64_t value) {
    return raw(std::to_string(value));
}

AnswerLine& AnswerLine::base64(std::span<const std::byte> data) {
    text_.reserve(text_.size() + (data.size() + 2) / 3 * 4 + payloadSlack);
    text_.setSize(text_.size() + encodePayload(data, text_.data() + text_.size()));
    return *this;
}

bool AnswerLine::send(foundation::FileHandle& output) {
    raw("}\n");
    return output.write(text_.view());
}

} // namespace bench
