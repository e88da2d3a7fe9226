#include "helper/ListingReader.h"

#include "helper/AdapterError.h"
#include "helper/FileStatMembers.h"

namespace kemvi {

using foundation::JSONElement;
using foundation::JSONType;

void ListingReader::read(JSONElement& result) {
    isArray_ = result.type() == JSONType::array;
    endsEarly_ = false;
    unfitSize_.reset();
    entries_.clear();
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
    FileStatMembers members;
    members.take(element);
    if (!fitsInteger(members.size()) && !unfitSize_)
        unfitSize_ = members.size();
    entries_.push_back(unfitSize_ ? KemviDirEntry() : KemviDirEntry(std::move(members).stat()));
}

std::vector<KemviDirEntry> ListingReader::entries() && {
    if (!isArray_)
        throw AdapterError::protocolError("readdir result was not an array");
    if (unfitSize_)
        (void)integerFromNumber(*unfitSize_); // stops the process
    if (endsEarly_)
        throw AdapterError::protocolError(statNotAnObject);
    return std::move(entries_);
}

} // namespace kemvi
