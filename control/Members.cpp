#include "control/Members.h"

#include "foundation/JSONWriter.h"

#include <array>
#include <charconv>
#include <cmath>

namespace control {

namespace {

constexpr std::size_t longestDouble = 32;             // characters
constexpr double largestInteger = 9007199254740992.0; // 2 to the 53; above, not every integer is a double

template <typename Element, typename Write>
std::string array(const std::vector<Element>& elements, Write&& write) {
    std::string text = "[";
    for (const auto& element : elements) {
        if (text.size() > 1)
            text += ',';
        text += write(element);
    }
    return text + "]";
}

} // namespace

std::string numberText(double value) {
    if (!std::isfinite(value))
        return "null";
    if (std::abs(value) < largestInteger && std::trunc(value) == value)
        return std::to_string(static_cast<std::int64_t>(value));
    std::array<char, longestDouble> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

Members& Members::addJSON(std::string_view key, std::string_view json) {
    if (!text_.empty())
        text_ += ',';
    text_ += foundation::jsonString(key);
    text_ += ':';
    text_ += json;
    return *this;
}

Members& Members::add(std::string_view key, std::string_view text) {
    return addJSON(key, foundation::jsonString(text));
}

Members& Members::add(std::string_view key, bool value) {
    return addJSON(key, value ? "true" : "false");
}

Members& Members::add(std::string_view key, std::int64_t value) {
    return addJSON(key, std::to_string(value));
}

Members& Members::add(std::string_view key, std::uint64_t value) {
    return addJSON(key, std::to_string(value));
}

Members& Members::add(std::string_view key, double value) {
    return addJSON(key, numberText(value));
}

Members& Members::add(std::string_view key, const Members& object) {
    return addJSON(key, object.json());
}

Members& Members::add(std::string_view key, const std::vector<std::string>& texts) {
    return addJSON(key, array(texts, [](const std::string& text) { return foundation::jsonString(text); }));
}

Members& Members::add(std::string_view key, const std::vector<Members>& objects) {
    return addJSON(key, array(objects, [](const Members& object) { return object.json(); }));
}

Members& Members::addNull(std::string_view key) {
    return addJSON(key, "null");
}

Members& Members::append(const Members& more) {
    if (!text_.empty() && !more.text_.empty())
        text_ += ',';
    text_ += more.text_;
    return *this;
}

} // namespace control
