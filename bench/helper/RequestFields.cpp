#include "RequestFields.h"

#include "foundation/Base64.h"

#include <stdexcept>

namespace bench {

using foundation::JSONElement;
using foundation::JSONType;

void RequestFields::read(std::string_view line, foundation::JSONReader& reader) {
    for (std::string* text : {&id, &op, &path, &oldPath, &newPath, &mtime})
        text->clear();
    writes = creates = truncates = false;
    handle = offset = length = mode = 0;
    data.clear();
    reader.readObject(line, [this](std::string_view key, JSONElement& value) { take(key, value); });
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
    else if (key == "dataBase64")
        takeData(value.string());
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

void RequestFields::takeData(std::string_view text) {
    data.resize(foundation::base64::decodedLength(text).value_or(0));
    if (!foundation::base64::decode(text, data))
        throw std::runtime_error("dataBase64 is not base64");
}

} // namespace bench
