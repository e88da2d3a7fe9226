#include "control/JSONText.h"

#include "control/Members.h"
#include "foundation/JSON.h"
#include "foundation/JSONWriter.h"

#include <utility>
#include <vector>

namespace control {

namespace {

std::string objectText(const kemvi::JSONObject& object) {
    Members members;
    for (const auto& [name, value] : object.members())
        members.addJSON(name, jsonText(value));
    return members.json();
}

std::string arrayText(const kemvi::JSONValue::Array& array) {
    std::string text = "[";
    for (const auto& element : array)
        text += (text.size() > 1 ? "," : "") + jsonText(element);
    return text + "]";
}

} // namespace

std::string jsonText(const kemvi::JSONValue& value) {
    switch (value.kind()) {
    case kemvi::JSONValue::Case::boolean: return *value.asBool() ? "true" : "false";
    case kemvi::JSONValue::Case::number: return numberText(*value.asNumber());
    case kemvi::JSONValue::Case::string: return foundation::jsonString(*value.asString());
    case kemvi::JSONValue::Case::array: return arrayText(*value.asArray());
    case kemvi::JSONValue::Case::object: return objectText(*value.asObject());
    case kemvi::JSONValue::Case::null: break;
    }
    return "null";
}

kemvi::JSONObject parsedObject(std::string_view line) {
    std::vector<kemvi::JSONObject::Member> members;
    foundation::JSONReader().readObject(line, [&](std::string_view key, foundation::JSONElement& value) {
        std::string name(key); // the value may take the place of the key
        members.emplace_back(std::move(name), kemvi::JSONValue::read(value));
    });
    return kemvi::JSONObject(std::move(members));
}

} // namespace control
