#include "helper/JSONValue.h"

#include "foundation/DecodingError.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>

namespace kemvi {
namespace {

constexpr std::size_t fewMembers = 16;
constexpr std::size_t usualMembers = 6;             // a file stat has five
constexpr double largestPlain = 9007199254740992.0; // 2 to the 53; above, not every integer is a double
constexpr int smallestPlainExponent = -4;

using foundation::JSONElement;
using foundation::JSONType;

// Few members: compares each with those before it, which needs no memory. The later one takes the earlier one's place.
void keepLastOfFew(std::vector<JSONObject::Member>& members) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const auto end = members.begin() + static_cast<std::ptrdiff_t>(kept);
        const auto same =
            std::find_if(members.begin(), end, [&](const auto& m) { return m.first == members[i].first; });
        if (same != end)
            same->second = std::move(members[i].second);
        else if (kept++ != i)
            members[kept - 1] = std::move(members[i]);
    }
    members.erase(members.begin() + static_cast<std::ptrdiff_t>(kept), members.end());
}

// Many: in the order of their keys, of one key the last member first.
void keepLastOfMany(std::vector<JSONObject::Member>& members) {
    std::vector<std::size_t> order(members.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        const int difference = members[a].first.compare(members[b].first);
        return difference != 0 ? difference < 0 : a > b;
    });
    std::vector<JSONObject::Member> kept;
    kept.reserve(members.size());
    for (const std::size_t i : order)
        if (kept.empty() || kept.back().first != members[i].first)
            kept.push_back(std::move(members[i]));
    members = std::move(kept);
}

std::string numberText(double value) {
    char text[32];
    const auto scientific = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific);
    const std::string_view shortest(text, static_cast<std::size_t>(scientific.ptr - text));
    const std::size_t mark = shortest.find('e');
    int exponent = 0;
    if (mark != std::string_view::npos) {
        const std::size_t first = mark + (shortest[mark + 1] == '+' ? 2 : 1);
        std::from_chars(shortest.data() + first, shortest.data() + shortest.size(), exponent);
    }
    if (std::fabs(value) > largestPlain || (value != 0 && exponent < smallestPlainExponent))
        return std::string(shortest);
    const auto fixed = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    std::string plain(text, fixed.ptr);
    if (plain.find('.') == std::string::npos)
        plain += ".0";
    return plain;
}

std::string joined(const JSONValue::Array& elements) {
    std::string text = "[";
    for (const JSONValue& element : elements)
        text.append(text.size() > 1 ? ", " : "").append(element.description());
    return text + "]";
}

std::string joined(const JSONObject& object) {
    std::vector<const JSONObject::Member*> sorted;
    for (const auto& member : object.members())
        sorted.push_back(&member);
    std::sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) { return a->first < b->first; });
    std::string text = "{";
    for (const auto* member : sorted)
        text.append(text.size() > 1 ? ", " : "")
            .append(member->first)
            .append(": ")
            .append(member->second.description());
    return text + "}";
}

} // namespace

JSONObject::JSONObject() = default;

JSONObject::JSONObject(std::vector<Member> members) : members_(std::move(members)) {
    if (members_.size() <= fewMembers)
        keepLastOfFew(members_);
    else
        keepLastOfMany(members_);
}

const JSONValue* JSONObject::find(std::string_view key) const {
    for (const Member& member : members_)
        if (member.first == key)
            return &member.second;
    return nullptr;
}

bool operator==(const JSONObject& a, const JSONObject& b) {
    return a.members_.size() == b.members_.size() &&
           std::all_of(a.members_.begin(), a.members_.end(), [&](const auto& m) {
               const JSONValue* other = b.find(m.first);
               return other != nullptr && *other == m.second;
           });
}

JSONValue JSONValue::read(JSONElement& element) {
    JSONValue value;
    value.assign(element);
    return value;
}

void JSONValue::assign(JSONElement& element) {
    switch (element.type()) {
    case JSONType::null: break; // what a new value is; the reader checks the literal
    case JSONType::boolean: storage_ = element.boolean(); break;
    case JSONType::number: storage_ = number(element); break;
    case JSONType::string: storage_.emplace<std::string>(element.string()); break;
    case JSONType::array: assignArray(element); break;
    case JSONType::object: assignObject(element); break;
    }
}

void JSONValue::pass(JSONElement& element) {
    switch (element.type()) {
    case JSONType::number: (void)number(element); break;
    case JSONType::array: element.forEachElement([](JSONElement& item) { pass(item); }); break;
    case JSONType::object: element.forEachMember([](std::string_view, JSONElement& value) { pass(value); }); break;
    default: break; // whoever handed it out reads over it and checks it
    }
}

double JSONValue::number(JSONElement& element) {
    const std::optional<double> number = element.number();
    if (!number)
        throw foundation::DecodingError::dataCorrupted("Unsupported JSON value");
    return *number;
}

// Elements and members are made where they will stay: a listing has hundreds of thousands.

void JSONValue::assignArray(JSONElement& element) {
    Array& elements = storage_.emplace<Array>();
    element.forEachElement([&](JSONElement& item) { elements.emplace_back().assign(item); });
}

void JSONValue::assignObject(JSONElement& element) {
    std::vector<JSONObject::Member> members;
    members.reserve(usualMembers);
    element.forEachMember([&](std::string_view key, JSONElement& value) {
        JSONObject::Member& member = members.emplace_back();
        member.first = key; // before the value is read, which may reuse the key's memory
        member.second.assign(value);
    });
    storage_.emplace<JSONObject>(std::move(members));
}

std::string JSONValue::description() const {
    switch (kind()) {
    case Case::boolean: return *asBool() ? "true" : "false";
    case Case::number: return numberText(*asNumber());
    case Case::string: return *asString();
    case Case::array: return joined(*asArray());
    case Case::object: return joined(*asObject());
    case Case::null: break;
    }
    return "null";
}

} // namespace kemvi
