#include "recording/Reader.h"

#include "foundation/Base64.h"
#include "foundation/DecodingError.h"
#include "helper/HelperRecords.h"
#include "recording/RecordingError.h"

#include <cmath>
#include <span>
#include <utility>

namespace recording {
namespace {

using foundation::JSONElement;
using foundation::JSONType;
using kemvi::JSONObject;
using kemvi::JSONValue;

std::int64_t wholeNumber(const JSONValue& value) {
    const double* const number = value.asNumber();
    return number != nullptr && kemvi::fitsInteger(*number) ? kemvi::integerFromNumber(*number) : 0;
}

JSONObject object(JSONValue value) {
    return value.asObject() != nullptr ? *value.asObject() : JSONObject();
}

/// The members of one line, of whatever kind it is.
struct LineMembers {
    std::optional<JSONObject> request;
    std::optional<JSONObject> kernel;
    std::optional<std::uint64_t> lost;
    Exchange exchange;
    bool isEnd = false;

    void read(std::string_view key, JSONElement& value) {
        const JSONType type = value.type();
        if (key == "q" && type == JSONType::object)
            request = object(JSONValue::read(value));
        else if (key == "a" && type == JSONType::object)
            exchange.answer = object(JSONValue::read(value));
        else if (key == "k" && type == JSONType::object)
            kernel = object(JSONValue::read(value));
        else if (key == "t")
            exchange.at = wholeNumber(JSONValue::read(value));
        else if (key == "d")
            exchange.took = wholeNumber(JSONValue::read(value));
        else if (key == "lost")
            lost = static_cast<std::uint64_t>(wholeNumber(JSONValue::read(value)));
        else if (key == "unreadable")
            exchange.unreadable = true;
        else if (key == "end")
            isEnd = true;
    }
};

} // namespace

std::string Exchange::text(std::string_view member) const {
    const JSONValue* const value = request.find(member);
    return value != nullptr && value->asString() != nullptr ? *value->asString() : std::string();
}

std::optional<std::int64_t> Exchange::number(std::string_view member) const {
    const JSONValue* const value = request.find(member);
    if (value == nullptr || value->asNumber() == nullptr || !kemvi::fitsInteger(*value->asNumber()))
        return std::nullopt;
    return kemvi::integerFromNumber(*value->asNumber());
}

bool Exchange::succeeded() const {
    const JSONValue* const ok = answer ? answer->find("ok") : nullptr;
    return ok != nullptr && ok->asBool() != nullptr && *ok->asBool();
}

std::string Exchange::errorCode() const {
    const JSONValue* const error = answer ? answer->find("error") : nullptr;
    const JSONValue* const code =
        error != nullptr && error->asObject() != nullptr ? error->asObject()->find("code") : nullptr;
    return code != nullptr && code->asString() != nullptr ? *code->asString() : std::string();
}

Reader::Reader(const std::string& path) : input_(openInput(path)) {
    if (!input_->readLine(text_))
        throw RecordingError(text_.empty() && !input_->wasCut() ? "is empty; expected a recording"
                                                                : "is no recording: it has not one whole line");
    line_ = 1;
    header_ = Header::parse(text_);
}

std::optional<Entry> Reader::next() {
    while (!ended_ && input_->readLine(text_)) {
        ++line_;
        if (auto entry = parse(text_))
            return entry;
    }
    return std::nullopt;
}

// Nothing for a line that is to be passed over.
std::optional<Entry> Reader::parse(std::string_view line) {
    LineMembers members;
    try {
        json_.readObject(line, [&](std::string_view key, JSONElement& value) { members.read(key, value); });
    } catch (const foundation::DecodingError&) {
        throw RecordingError("line " + std::to_string(line_) +
                             " is no line of a recording: the file was changed, or is another's");
    }
    ended_ = members.isEnd;
    if (members.request) {
        members.exchange.request = std::move(*members.request);
        return std::move(members.exchange);
    }
    if (members.kernel)
        return KernelRequest{std::move(*members.kernel)};
    if (members.lost)
        return Lost{*members.lost};
    return std::nullopt;
}

std::optional<std::string> decodedPayload(std::string_view base64) {
    const auto length = foundation::base64::decodedLength(base64);
    std::string bytes(length.value_or(0), '\0');
    if (!length || !foundation::base64::decode(base64, std::as_writable_bytes(std::span(bytes))))
        return std::nullopt;
    return bytes;
}

} // namespace recording
