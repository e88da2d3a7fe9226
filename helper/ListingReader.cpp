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
        JSONValue::pass(result);
}

void ListingReader::readElement(JSONElement& element) {
    if (endsEarly_ || element.type() != JSONType::object) {
        endsEarly_ = true;
        JSONValue::pass(element);
        return;
    }
    stats_.emplace_back().take(element);
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
