#include "control/Request.h"

#include "control/Members.h"

namespace control {

void refuseMember(std::string_view name, std::string_view expected) {
    throw Refusal("badMember", "\"" + std::string(name) + "\": expected " + std::string(expected));
}

const kemvi::JSONValue* Request::find(std::string_view name) const {
    const kemvi::JSONValue* value = members_.find(name);
    return value != nullptr && !value->isNull() ? value : nullptr;
}

std::optional<std::string> Request::text(std::string_view name) const {
    const auto* value = find(name);
    if (value == nullptr)
        return std::nullopt;
    if (value->asString() == nullptr)
        refuseMember(name, "a string");
    return *value->asString();
}

std::optional<double> Request::number(std::string_view name, double least, double most) const {
    const auto* value = find(name);
    if (value == nullptr)
        return std::nullopt;
    const double* number = value->asNumber();
    if (number == nullptr || *number < least || *number > most)
        refuseMember(name, "a number from " + numberText(least) + " to " + numberText(most));
    return *number;
}

std::optional<std::vector<std::string>> Request::texts(std::string_view name) const {
    const auto* value = find(name);
    if (value == nullptr)
        return std::nullopt;
    if (value->asArray() == nullptr)
        refuseMember(name, "an array of strings");
    std::vector<std::string> texts;
    for (const auto& element : *value->asArray()) {
        if (element.asString() == nullptr)
            refuseMember(name, "an array of strings");
        texts.push_back(*element.asString());
    }
    return texts;
}

bool Request::isSet(std::string_view name) const {
    const auto* value = find(name);
    if (value == nullptr)
        return false;
    if (value->asBool() == nullptr)
        refuseMember(name, "true or false");
    return *value->asBool();
}

} // namespace control
