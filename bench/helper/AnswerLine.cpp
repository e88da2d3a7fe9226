#include "AnswerLine.h"

#include "Payload.h"
#include "foundation/JSONWriter.h"

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
    return raw(foundation::jsonString(text));
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
