#include "recording/JSONText.h"

#include "foundation/JSONWriter.h"

#include <charconv>
#include <cmath>

namespace recording {

using foundation::JSONElement;
using foundation::jsonString;
using foundation::JSONType;
using kemvi::JSONValue;

std::string numberText(double number) {
    constexpr double largestExact = 9007199254740992.0; // 2 to the 53
    char text[40];
    const bool isWhole = std::fabs(number) <= largestExact && std::trunc(number) == number;
    const auto end = isWhole ? std::to_chars(text, text + sizeof text, static_cast<long long>(number))
                             : std::to_chars(text, text + sizeof text, number);
    return {text, end.ptr};
}

std::string jsonText(const JSONValue& value) {
    std::string json;
    switch (value.kind()) {
    case JSONValue::Case::number: return numberText(*value.asNumber());
    case JSONValue::Case::string: return jsonString(*value.asString());
    case JSONValue::Case::array:
        for (const JSONValue& element : *value.asArray())
            json.append(json.empty() ? "" : ",").append(jsonText(element));
        return "[" + json + "]";
    case JSONValue::Case::object:
        for (const auto& [key, member] : value.asObject()->members())
            json.append(json.empty() ? "" : ",").append(jsonString(key)).append(":").append(jsonText(member));
        return "{" + json + "}";
    case JSONValue::Case::boolean:
    case JSONValue::Case::null: break;
    }
    return value.description();
}

namespace {

void appendArray(std::string& json, std::string_view key, JSONElement& value, const StringRule& rule) {
    json += '[';
    bool first = true;
    value.forEachElement([&](JSONElement& element) {
        json += first ? "" : ",";
        first = false;
        appendJSON(json, key, element, rule);
    });
    json += ']';
}

void appendObject(std::string& json, JSONElement& value, const StringRule& rule) {
    json += '{';
    bool first = true;
    value.forEachMember([&](std::string_view key, JSONElement& member) {
        json.append(first ? "" : ",").append(jsonString(key)).append(":");
        first = false;
        appendJSON(json, std::string(key), member, rule); // a copy: reading the value may reuse the key's memory
    });
    json += '}';
}

} // namespace

void appendJSON(std::string& json, std::string_view key, JSONElement& value, const StringRule& rule) {
    switch (value.type()) {
    case JSONType::null: json += "null"; break;
    case JSONType::boolean: json += value.boolean() ? "true" : "false"; break;
    case JSONType::number: json += numberText(JSONValue::number(value)); break;
    case JSONType::string: json += jsonString(rule(key, value.string())); break;
    case JSONType::array: appendArray(json, key, value, rule); break;
    case JSONType::object: appendObject(json, value, rule); break;
    }
}

} // namespace recording
