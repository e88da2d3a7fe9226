#include "helper/FileStatMembers.h"

namespace kemvi {
namespace {

using foundation::JSONElement;
using foundation::JSONType;

// The last component of a path. "/" is its own name, and so is a path that has no component.
std::string basename(const std::string& path) {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return path;
    const std::size_t slash = path.rfind('/', last);
    const std::size_t first = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(first, last - first + 1);
}

// The values of a member, each where it is of the wanted type.

std::optional<std::string> textOf(const JSONValue& value) {
    const std::string* text = value.asString();
    return text != nullptr ? std::optional(*text) : std::nullopt;
}

bool isTrue(const JSONValue& value) {
    const bool* flag = value.asBool();
    return flag != nullptr && *flag;
}

double numberOf(const JSONValue& value) {
    const double* number = value.asNumber();
    return number != nullptr ? *number : 0;
}

std::optional<foundation::Date> dateOf(const JSONValue& value) {
    const std::string* text = value.asString();
    return text != nullptr ? kemviFs().date(*text) : std::nullopt;
}

// The same on the way. What is of another type is read over, for its errors.

bool isOrPass(JSONElement& value, JSONType wanted) {
    if (value.type() == wanted)
        return true;
    JSONValue::pass(value);
    return false;
}

std::optional<std::string> textOf(JSONElement& value) {
    return isOrPass(value, JSONType::string) ? std::optional<std::string>(value.string()) : std::nullopt;
}

bool isTrue(JSONElement& value) {
    return isOrPass(value, JSONType::boolean) && value.boolean();
}

double numberOf(JSONElement& value) {
    return isOrPass(value, JSONType::number) ? JSONValue::number(value) : 0;
}

std::optional<foundation::Date> dateOf(JSONElement& value) {
    return isOrPass(value, JSONType::string) ? kemviFs().date(value.string()) : std::nullopt;
}

} // namespace

// False for a key that is not known; the value is then left. A key is looked at before its value, whose reading may
// reuse the key's memory.
template <typename Value>
bool FileStatMembers::assign(std::string_view key, Value& value) {
    if (key == "path")
        path_ = textOf(value);
    else if (key == "name")
        name_ = textOf(value);
    else if (key == "isDirectory")
        isDirectory_ = isTrue(value);
    else if (key == "size")
        size_ = numberOf(value);
    else if (key == "modifiedAt")
        modifiedAt_ = dateOf(value);
    else
        return false;
    return true;
}

void FileStatMembers::take(std::string_view key, const JSONValue& value) {
    (void)assign(key, value);
}

void FileStatMembers::take(JSONElement& object) {
    object.forEachMember([this](std::string_view key, JSONElement& value) {
        if (!assign(key, value))
            JSONValue::pass(value);
    });
}

KemviFileStat FileStatMembers::stat() && {
    KemviFileStat made;
    if (path_)
        made.path = std::move(*path_);
    made.name = name_ ? std::move(*name_) : basename(made.path);
    made.isDirectory = isDirectory_;
    made.size = integerFromNumber(size_);
    made.modifiedAt = modifiedAt_;
    return made;
}

} // namespace kemvi
