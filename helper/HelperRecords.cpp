#include "helper/HelperRecords.h"

#include "foundation/Log.h"
#include "helper/AdapterError.h"

#include <cmath>

namespace kemvi {
namespace {

// Exact in a double, and one more than the largest 64-bit integer.
constexpr double twoToThe63 = 9223372036854775808.0;

const std::string* stringMember(const JSONObject& object, std::string_view key) {
    const JSONValue* value = object.find(key);
    return value != nullptr ? value->asString() : nullptr;
}

std::int64_t integerMember(const JSONObject& object, std::string_view key) {
    const JSONValue* value = object.find(key);
    const double* number = value != nullptr ? value->asNumber() : nullptr;
    return number != nullptr ? integerFromNumber(*number) : 0;
}

bool boolMember(const JSONObject& object, std::string_view key) {
    const JSONValue* value = object.find(key);
    const bool* flag = value != nullptr ? value->asBool() : nullptr;
    return flag != nullptr && *flag;
}

// The last component of a path. "/" is its own name, and so is a path that has no component.
std::string basename(const std::string& path) {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return path;
    const std::size_t slash = path.rfind('/', last);
    const std::size_t first = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(first, last - first + 1);
}

} // namespace

const foundation::ISO8601DateFormatter& kemviFs() {
    static const foundation::ISO8601DateFormatter formatter;
    return formatter;
}

std::int64_t integerFromNumber(double number) {
    const double whole = std::trunc(number);
    if (!(whole >= -twoToThe63 && whole < twoToThe63))
        foundation::fatalError("a number of the helper does not fit a 64-bit integer");
    return static_cast<std::int64_t>(whole);
}

KemviFileStat::KemviFileStat(const JSONValue& json) {
    const JSONObject* object = json.asObject();
    if (object == nullptr)
        throw AdapterError::protocolError("file stat was not an object");
    if (const std::string* text = stringMember(*object, "path"))
        path = *text;
    const std::string* givenName = stringMember(*object, "name");
    name = givenName != nullptr ? *givenName : basename(path);
    isDirectory = boolMember(*object, "isDirectory");
    size = integerMember(*object, "size");
    if (const std::string* text = stringMember(*object, "modifiedAt"))
        modifiedAt = kemviFs().date(*text);
}

std::string KemviFileStat::description() const {
    return (isDirectory ? "dir " : "file ") + path;
}

KemviDirEntry::KemviDirEntry(KemviFileStat stat)
    : path(std::move(stat.path)), name(std::move(stat.name)), isDirectory(stat.isDirectory), size(stat.size),
      modifiedAt(stat.modifiedAt) {}

std::string KemviDirEntry::description() const {
    return (isDirectory ? "dir  " : "file ") + path;
}

KemviStatFS::KemviStatFS(const std::optional<JSONValue>& json) {
    const JSONObject* object = json ? json->asObject() : nullptr;
    if (object == nullptr)
        throw AdapterError::protocolError("statfs result was not an object");
    files = integerMember(*object, "files");
    directories = integerMember(*object, "directories");
    bytes = integerMember(*object, "bytes");
}

} // namespace kemvi
