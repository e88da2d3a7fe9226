#include "helper/HelperRecords.h"

#include "foundation/Log.h"
#include "helper/AdapterError.h"
#include "helper/FileStatMembers.h"

#include <cmath>

namespace kemvi {
namespace {

// Exact in a double, and one more than the largest 64-bit integer.
constexpr double twoToThe63 = 9223372036854775808.0;

std::int64_t integerMember(const JSONObject& object, std::string_view key) {
    const JSONValue* value = object.find(key);
    const double* number = value != nullptr ? value->asNumber() : nullptr;
    return number != nullptr ? integerFromNumber(*number) : 0;
}

} // namespace

const foundation::ISO8601DateFormatter& kemviFs() {
    static const foundation::ISO8601DateFormatter formatter;
    return formatter;
}

bool fitsInteger(double number) {
    const double whole = std::trunc(number);
    return whole >= -twoToThe63 && whole < twoToThe63;
}

std::int64_t integerFromNumber(double number) {
    if (!fitsInteger(number))
        foundation::fatalError("a number of the helper does not fit a 64-bit integer");
    return static_cast<std::int64_t>(number);
}

KemviFileStat::KemviFileStat(const JSONValue& json) {
    const JSONObject* object = json.asObject();
    if (object == nullptr)
        throw AdapterError::protocolError(statNotAnObject);
    FileStatMembers members;
    for (const auto& [key, value] : object->members())
        members.take(key, value);
    *this = std::move(members).stat();
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
