#include "JSONWriter.h"

#include <charconv>
#include <cstdio>

namespace fuzz {

std::string jsonText(std::string_view text) {
    std::string written = "\"";
    for (const char c : text) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\')
            written += escape;
        else
            written += c;
    }
    return written + '"';
}

std::string jsonText(const kemvi::JSONValue& value) {
    using Case = kemvi::JSONValue::Case;
    std::string written;
    switch (value.kind()) {
    case Case::null: return "null";
    case Case::boolean: return *value.asBool() ? "true" : "false";
    case Case::string: return jsonText(*value.asString());
    case Case::number: {
        char text[32];
        return {text, std::to_chars(text, text + sizeof text, *value.asNumber()).ptr};
    }
    case Case::array:
        for (const kemvi::JSONValue& element : *value.asArray())
            written.append(written.empty() ? "" : ",").append(jsonText(element));
        return "[" + written + "]";
    case Case::object:
        for (const auto& [key, member] : value.asObject()->members())
            written.append(written.empty() ? "" : ",").append(jsonText(key)).append(":").append(jsonText(member));
        return "{" + written + "}";
    }
    return written;
}

} // namespace fuzz
