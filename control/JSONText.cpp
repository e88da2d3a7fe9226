#include "control/JSONText.h"

#include "control/Members.h"
#include "foundation/JSONWriter.h"

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

} // namespace control
