#include "helper/StatReader.h"

#include "helper/AdapterError.h"

namespace kemvi {

using foundation::JSONElement;
using foundation::JSONType;

void StatReader::read(JSONElement& result) {
    type_ = result.type();
    members_ = FileStatMembers();
    if (type_ == JSONType::object)
        members_.take(result);
    else
        JSONValue::pass(result);
}

KemviFileStat StatReader::stat() && {
    if (type_ == JSONType::null)
        throw AdapterError::protocolError("getattr result was empty");
    if (type_ != JSONType::object)
        throw AdapterError::protocolError(statNotAnObject);
    return std::move(members_).stat();
}

} // namespace kemvi
