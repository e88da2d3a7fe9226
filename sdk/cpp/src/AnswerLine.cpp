#include "AnswerLine.h"

#include "foundation/Base64.h"
#include "foundation/JSONWriter.h"

#include <stdexcept>

namespace kemvi::kit {
namespace {

constexpr std::size_t sentSize = std::size_t{256} * 1024; // bytes that are worth a call of the platform by themselves

} // namespace

void AnswerLine::begin(std::string_view id) {
    text_.clear();
    closing_.clear();
    raw("{\"id\":").quoted(id).raw(",\"ok\":true");
}

void AnswerLine::beginParts(std::string_view id, std::string_view opening, std::string_view closing) {
    text_.clear();
    raw("{\"id\":").quoted(id).raw(",").raw(opening);
    closing_ = closing;
}

AnswerLine& AnswerLine::raw(std::string_view json) {
    text_.append(json);
    return *this;
}

AnswerLine& AnswerLine::quoted(std::string_view text) {
    text_.reserve(text_.size() + foundation::JSONWriter::roomFor(text));
    foundation::JSONWriter writer(text_.data() + text_.size());
    if (!writer.string(text))
        throw std::invalid_argument("a text is not UTF-8: " + foundation::jsonString(text));
    text_.setSize(static_cast<std::size_t>(writer.at() - text_.data()));
    return *this;
}

AnswerLine& AnswerLine::number(std::uint64_t value) {
    return raw(std::to_string(value));
}

AnswerLine& AnswerLine::base64(std::span<const std::byte> data) {
    text_.reserve(text_.size() + foundation::base64::plainRoom(data.size()));
    text_.setSize(text_.size() + foundation::base64::encode(data, text_.data() + text_.size()));
    return *this;
}

void AnswerLine::sendIfLong() {
    if (text_.size() < sentSize)
        return;
    send();
    partlySent_ = true;
}

void AnswerLine::end() {
    if (!closing_.empty())
        raw(closing_).raw(",\"ok\":true");
    raw("}\n");
    send();
    partlySent_ = false;
}

void AnswerLine::fail(std::string_view id, std::string_view code, std::string_view message) {
    failQuoted(foundation::jsonString(id), code, message);
}

void AnswerLine::failQuoted(std::string_view quotedId, std::string_view code, std::string_view message) {
    if (partlySent_) {
        // A member may have been begun when its maker failed.
        raw(closing_).raw(",\"ok\":false,");
    } else {
        text_.clear();
        raw("{\"id\":").raw(quotedId).raw(",\"ok\":false,");
    }
    error(code, message);
    raw("}\n");
    send();
    partlySent_ = false;
}

void AnswerLine::error(std::string_view code, std::string_view message) {
    raw("\"error\":{\"message\":").raw(foundation::jsonString(message.empty() ? "it failed" : message));
    if (!code.empty())
        raw(",\"code\":").raw(foundation::jsonString(code));
    raw("}");
}

void AnswerLine::send() {
    isHeard_ = isHeard_ && output_.write(text_.view());
    text_.clear();
}

} // namespace kemvi::kit
