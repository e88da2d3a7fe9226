#include "RequestFields.h"

#include "Payload.h"
#include "foundation/Base64.h"

#include <span>
#include <stdexcept>

namespace bench {

using foundation::JSONElement;

void RequestFields::read(std::string_view line, foundation::JSONReader& reader) {
    for (std::string* text : {&id, &op, &path, &oldPath, &newPath, &mtime})
        text->clear();
    writes = creates = truncates = false;
    handle = offset = length = mode = 0;
    data.clear();
    const auto takeMember = [this](std::string_view key, JSONElement& value) { take(key, value); };
    // The payload is cut out, so that nothing but the decoder looks at it.
    static constexpr std::string_view dataKey = ",\"dataBase64\":\"";
    const std::size_t dataAt = line.find(dataKey);
    if (dataAt == std::string_view::npos) {
        reader.readObject(line, takeMember);
        return;
    }
    const std::size_t from = dataAt + dataKey.size();
    const std::size_t to = line.find('"', from);
    if (to == std::string_view::npos)
        throw std::runtime_error("the line ends within dataBase64");
    scratch_.clear();
    scratch_.append(line.substr(0, dataAt));
    scratch_.append(line.substr(to + 1));
    reader.readObject(scratch_.view(), takeMember);
    takeData(line.substr(from, to - from));
}

std::string* RequestFields::textField(std::string_view key) {
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

std::int64_t* RequestFields::numberField(std::string_view key) {
    if (key == "handle")
        return &handle;
    if (key == "offset")
        return &offset;
    if (key == "length")
        return &length;
    return key == "mode" ? &mode : nullptr;
}

void RequestFields::take(std::string_view key, JSONElement& value) {
    if (key == "flags")
        takeFlags(value);
    else if (std::string* text = textField(key))
        *text = value.string();
    else if (std::int64_t* number = numberField(key))
        *number = static_cast<std::int64_t>(value.number().value_or(0));
}

void RequestFields::takeFlags(JSONElement& value) {
    value.forEachElement([this](JSONElement& word) {
        const std::string_view text = word.string();
        writes |= text == "write";
        creates |= text == "create";
        truncates |= text == "truncate";
    });
}

void RequestFields::takeData(std::string_view escaped) {
    scratch_.reserve(escaped.size() + payloadSlack);
    const std::string_view text(scratch_.data(), copyWithoutBackslashes(escaped, scratch_.data()));
    data.reserve(text.size());
    const auto room = std::as_writable_bytes(std::span(data.data(), text.size()));
    const auto size = foundation::base64::decode(text, room);
    if (!size)
        throw std::runtime_error("dataBase64 is not base64");
    data.setSize(*size);
}

} // namespace bench
