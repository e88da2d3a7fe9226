#include "helper/HelperRequest.h"

#include "foundation/DecodingError.h"
#include "foundation/Utf8.h"

namespace kemvi {
namespace {

// What a character of a JSON string is written as; nothing for one that stands as it is.
std::string_view escapeOf(char c) {
    switch (c) {
    case '"': return "\\\"";
    case '\\': return "\\\\";
    case '/': return "\\/";
    case '\b': return "\\b";
    case '\f': return "\\f";
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: return {};
    }
}

void appendString(std::string& text, std::string_view value) {
    static constexpr char hex[] = "0123456789abcdef";
    if (!foundation::isValidUtf8(value))
        throw foundation::EncodingError("a string of the request is not UTF-8");
    text += '"';
    for (const char c : value) {
        if (const std::string_view escape = escapeOf(c); !escape.empty())
            text += escape;
        else if (static_cast<unsigned char>(c) < 0x20)
            text.append("\\u00").append({hex[c >> 4], hex[c & 15]});
        else
            text += c;
    }
    text += '"';
}

void appendKey(std::string& text, std::string_view key) {
    text.append(text.empty() ? "{\"" : ",\"").append(key).append("\":");
}

void append(std::string& text, std::string_view key, const std::string& value) {
    appendKey(text, key);
    appendString(text, value);
}

void append(std::string& text, std::string_view key, std::int64_t value) {
    appendKey(text, key);
    text += std::to_string(value);
}

void append(std::string& text, std::string_view key, const std::vector<std::string>& values) {
    appendKey(text, key);
    text += '[';
    for (const std::string& value : values) {
        if (&value != &values.front())
            text += ',';
        appendString(text, value);
    }
    text += ']';
}

template <typename T>
void append(std::string& text, std::string_view key, const std::optional<T>& value) {
    if (value)
        append(text, key, *value);
}

} // namespace

HelperRequestEncoder::Line HelperRequestEncoder::encode(const HelperRequest& request) {
    text_.clear();
    append(text_, "id", request.id);
    append(text_, "op", request.op);
    append(text_, "path", request.path);
    append(text_, "oldPath", request.oldPath);
    append(text_, "newPath", request.newPath);
    append(text_, "flags", request.flags);
    append(text_, "handle", request.handle);
    append(text_, "offset", request.offset);
    append(text_, "length", request.length);
    std::size_t split = text_.size();
    if (request.dataBase64) {
        appendKey(text_, "dataBase64");
        text_ += '"';
        split = text_.size();
        text_ += '"';
    }
    append(text_, "mode", request.mode);
    append(text_, "mtime", request.mtime);
    text_ += "}\n";
    const std::string_view text = text_;
    return {text.substr(0, split), request.dataBase64.value_or(std::string_view()), text.substr(split)};
}

} // namespace kemvi
