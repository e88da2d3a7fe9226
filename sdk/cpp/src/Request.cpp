#include "Request.h"

#include "Escapes.h"
#include "foundation/Base64.h"

#include <algorithm>
#include <cmath>

namespace kemvi::kit {
namespace {

using foundation::JSONElement;
using foundation::JSONType;

constexpr std::size_t longLine = 512; // bytes; in a shorter one nothing is gained by cutting
constexpr std::string_view payloadKey = "\"dataBase64\":\"";
constexpr double firstInexact = 9007199254740992; // 2^53

std::optional<std::int64_t> wholeNumber(JSONElement& value) {
    const auto number = value.type() == JSONType::number ? value.number() : std::nullopt;
    if (!number || *number < 0 || *number >= firstInexact || std::trunc(*number) != *number)
        return std::nullopt;
    return static_cast<std::int64_t>(*number);
}

} // namespace

void Request::clear() {
    for (TextField* field : {&id, &op, &path, &oldPath, &newPath, &mtime})
        field->isGiven = false;
    numberAsId = handle = offset = length = mode = std::nullopt;
    hasFlags = reads = writes = creates = truncates = false;
    unknownFlag.clear();
    payload = Payload::absent;
    data_.clear();
}

void Request::read(std::string_view line) {
    if (line.size() > longLine && readCuttingPayload(line))
        return;
    readMembers(line, Cut());
}

// A long payload never goes through the reader of JSON: it is cut out and decoded by itself. False if there is none
// that can be cut.
bool Request::readCuttingPayload(std::string_view line) {
    const std::size_t key = line.find(payloadKey);
    if (key == std::string_view::npos)
        return false;
    const std::size_t from = key + payloadKey.size();
    const std::size_t to = line.find('"', from);
    if (to == std::string_view::npos)
        return false;
    payload_.reserve(to - from + copySlack);
    const auto size = copyUnescapingSlashes(line.substr(from, to - from), payload_.data());
    if (!size)
        return false;
    rest_.clear();
    rest_.append(line.substr(0, from));
    rest_.append(line.substr(to));
    readMembers(rest_.view(), Cut{rest_.data() + from, {payload_.data(), *size}});
    return true;
}

void Request::readMembers(std::string_view text, const Cut& cut) {
    clear();
    reader_.readObject(text, [&](std::string_view key, JSONElement& value) { take(key, value, cut); });
}

TextField* Request::textField(std::string_view key) {
    if (key == "id")
        return &id;
    if (key == "op")
        return &op;
    if (key == "path")
        return &path;
    if (key == "oldPath")
        return &oldPath;
    if (key == "newPath")
        return &newPath;
    return key == "mtime" ? &mtime : nullptr;
}

std::optional<std::int64_t>* Request::numberField(std::string_view key) {
    if (key == "handle")
        return &handle;
    if (key == "offset")
        return &offset;
    if (key == "length")
        return &length;
    return key == "mode" ? &mode : nullptr;
}

void Request::take(std::string_view key, JSONElement& value, const Cut& cut) {
    if (TextField* const field = textField(key)) {
        field->isGiven = value.type() == JSONType::string;
        if (field->isGiven)
            field->text = value.string();
        else if (field == &id)
            numberAsId = wholeNumber(value);
    } else if (std::optional<std::int64_t>* const number = numberField(key)) {
        *number = wholeNumber(value);
    } else if (key == "flags") {
        takeFlags(value);
    } else if (key == "dataBase64") {
        takePayload(value, cut);
    }
}

void Request::takeFlags(JSONElement& value) {
    hasFlags = value.type() == JSONType::array;
    reads = writes = creates = truncates = false;
    unknownFlag.clear();
    if (!hasFlags)
        return;
    value.forEachElement([this](JSONElement& word) {
        if (word.type() != JSONType::string) {
            hasFlags = false;
            return;
        }
        const std::string_view text = word.string();
        if (text == "read")
            reads = true;
        else if (text == "write")
            writes = true;
        else if (text == "create")
            creates = true;
        else if (text == "truncate")
            truncates = true;
        else
            unknownFlag = text.empty() ? "(empty)" : text;
    });
}

void Request::takePayload(JSONElement& value, const Cut& cut) {
    payload = Payload::notText;
    if (value.type() != JSONType::string)
        return;
    const std::string_view text = value.string();
    decode(text.data() == cut.place ? cut.payload : text);
}

void Request::decode(std::string_view base64) {
    const auto room = foundation::base64::decodedLength(base64).value_or(0);
    data_.reserve(room);
    const auto size = foundation::base64::decode(base64, std::as_writable_bytes(std::span(data_.data(), room)));
    data_.setSize(size.value_or(0));
    payload = size ? Payload::given : Payload::notBase64;
}

std::optional<std::string_view> idAtFront(std::string_view line) {
    const auto skip = [&line](std::string_view text) {
        line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
        const bool found = line.starts_with(text);
        line.remove_prefix(found ? text.size() : 0);
        return found;
    };
    if (!skip("{") || !skip("\"id\"") || !skip(":") || !skip("\""))
        return std::nullopt;
    std::size_t end = 0;
    while (end < line.size() && line[end] != '"')
        end += line[end] == '\\' ? 2 : 1;
    if (end >= line.size())
        return std::nullopt;
    const std::string_view quoted(line.data() - 1, end + 2);
    try {
        foundation::JSONReader().readObject("{\"id\":" + std::string(quoted) + "}",
                                            [](std::string_view, JSONElement&) {});
    } catch (const foundation::DecodingError&) {
        return std::nullopt;
    }
    return quoted;
}

} // namespace kemvi::kit
