#include "foundation/JSON.h"

#include <string>

namespace foundation {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

} // namespace

std::string_view jsonTypeName(JSONType type) {
    switch (type) {
    case JSONType::null: return "null";
    case JSONType::boolean: return "a boolean";
    case JSONType::number: return "a number";
    case JSONType::string: return "a string";
    case JSONType::array: return "an array";
    case JSONType::object: return "an object";
    }
    return "nothing";
}

void JSONReader::begin(std::string_view text) {
    if (text.starts_with(byteOrderMark))
        text.remove_prefix(byteOrderMark.size());
    tokens_.begin(text);
}

void JSONReader::refuse(JSONElement& top) const {
    top.skip();
    tokens_.expectEnd();
    const auto kind =
        top.type() == JSONType::null ? DecodingError::Kind::valueNotFound : DecodingError::Kind::typeMismatch;
    throw DecodingError(kind, "expected an object at the top level, found " + std::string(jsonTypeName(top.type())));
}

void JSONElement::skipUntaken() {
    switch (type_) {
    case JSONType::null: tokens_.takeNull(); break;
    case JSONType::boolean: tokens_.takeBoolean(); break;
    case JSONType::number: tokens_.takeNumberText(); break;
    case JSONType::string: tokens_.takeString(); break;
    case JSONType::array: forEachElement([](JSONElement&) {}); break;
    case JSONType::object: forEachMember([](std::string_view, JSONElement&) {}); break;
    }
}

JSONStringMembers::JSONStringMembers(std::string_view text) {
    JSONReader reader;
    reader.readObject(text, [&](std::string_view key, JSONElement& value) {
        Member& member = members_[std::string(key)];
        member.type = value.type();
        member.text = value.type() == JSONType::string ? std::string(value.string()) : std::string();
    });
}

const std::string& JSONStringMembers::string(std::string_view key) const {
    const auto found = members_.find(key);
    if (found == members_.end())
        throw DecodingError::keyNotFound(key);
    if (found->second.type != JSONType::string)
        throw DecodingError::typeMismatch(key, jsonTypeName(JSONType::string), jsonTypeName(found->second.type));
    return found->second.text;
}

} // namespace foundation
