#pragma once

#include "foundation/JSON.h"
#include "helper/FileStatMembers.h"

namespace kemvi {

/// Reads the result of a "getattr" straight from its line, without a tree of values: no other request is as frequent.
/// Nothing is judged before `stat`, as with a listing.
class StatReader {
public:
    /// Takes the result in; one that was taken before is forgotten. Throws DecodingError.
    void read(foundation::JSONElement& result);

    /// Throws AdapterError::protocolError if no result was read, or one that is no object; a size outside the range of
    /// a 64-bit integer stops the process.
    KemviFileStat stat() &&;

private:
    foundation::JSONType type_ = foundation::JSONType::null; // of the result; null stands for none as well
    FileStatMembers members_;
};

} // namespace kemvi
