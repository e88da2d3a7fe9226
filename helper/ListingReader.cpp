#include "helper/ListingReader.h"

#include "helper/AdapterError.h"

namespace kemvi {

using foundation::JSONElement;
using foundation::JSONType;

void ListingReader::read(JSONElement& result) {
    isArray_ = result.type() == JSONType::array;
    endsEarly_ = false;
    stats_.clear();
    if (isArray_)
        result.forEachElement([this](JSONElement& element) { readElement(element); });
    else
        (void)JSONValue::read(result); // for its errors
}

void ListingReader::readElement(JSONElement& element) {
    if (endsEarly_ || element.type() != JSONType::object) {
        endsEarly_ = true;
        (void)JSONValue::read(element); // for its errors
        return;
    }
    FileStatMembers& members = stats_.emplace_back();
    element.forEachMember([&](std::string_view key, JSONElement& value) {
        const std::string ownKey(key); // reading the value may reuse the key's memory
        members.take(ownKey, JSONValue::read(value));
    });
}

std::vector<KemviDirEntry> ListingReader::entries() && {
    if (!isArray_)
        throw AdapterError::protocolError("readdir result was not an array");
    std::vector<KemviDirEntry> made;
    made.reserve(stats_.size());
    for (FileStatMembers& members : stats_)
        made.emplace_back(std::move(members).stat());
    if (endsEarly_)
        throw AdapterError::protocolError(statNotAnObject);
    return made;
}

} // namespace kemvi
