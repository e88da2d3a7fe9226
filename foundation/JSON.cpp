#include "foundation/JSON.h"

#include "foundation/JSONTokens.h"

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

JSONReader::JSONReader() : tokens_(std::make_unique<Tokens>()) {}

JSONReader::~JSONReader() = default;

void JSONReader::readObject(std::string_view text, const JSONElement::MemberHandler& handler) {
    if (text.starts_with(byteOrderMark))
        text.remove_prefix(byteOrderMark.size());
    tokens_->begin(text);
    JSONElement top(*this, tokens_->nextType());
    if (top.type() == JSONType::object) {
        top.forEachMember(handler);
        tokens_->expectEnd();
        return;
    }
    top.skip();
    tokens_->expectEnd();
    const auto kind =
        top.type() == JSONType::null ? DecodingError::Kind::valueNotFound : DecodingError::Kind::typeMismatch;
    throw DecodingError(kind, "expected an object at the top level, found " + std::string(jsonTypeName(top.type())));
}

void JSONElement::take() {
    taken_ = true;
}

void JSONElement::skip() {
    if (taken_)
        return;
    JSONReader::Tokens& tokens = *reader_.tokens_;
    switch (type_) {
    case JSONType::null: tokens.takeNull(); break;
    case JSONType::boolean: tokens.takeBoolean(); break;
    case JSONType::number: tokens.takeNumberText(); break;
    case JSONType::string: tokens.takeString(); break;
    case JSONType::array: forEachElement([](JSONElement&) {}); break;
    case JSONType::object: forEachMember([](std::string_view, JSONElement&) {}); break;
    }
}

bool JSONElement::boolean() {
    take();
    return reader_.tokens_->takeBoolean();
}

std::optional<double> JSONElement::number() {
    take();
    return reader_.tokens_->takeNumber();
}

std::string_view JSONElement::string() {
    take();
    return reader_.tokens_->takeString();
}

void JSONElement::forEachElement(const ElementHandler& handler) {
    take();
    JSONReader::Tokens& tokens = *reader_.tokens_;
    tokens.enter('[');
    for (bool more = !tokens.leaveIfEmpty(']'); more; more = tokens.nextItem(']')) {
        JSONElement element(reader_, tokens.nextType());
        handler(element);
        element.skip();
    }
}

void JSONElement::forEachMember(const MemberHandler& handler) {
    take();
    JSONReader::Tokens& tokens = *reader_.tokens_;
    tokens.enter('{');
    for (bool more = !tokens.leaveIfEmpty('}'); more; more = tokens.nextItem('}')) {
        const std::string_view key = tokens.takeKey();
        JSONElement value(reader_, tokens.nextType());
        handler(key, value);
        value.skip();
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
