#pragma once

#include "foundation/JSON.h"
#include "helper/HelperRecords.h"

#include <optional>
#include <vector>

namespace kemvi {

/// Reads the result of a "readdir" straight from its line: a listing has tens of thousands of elements, and a tree of
/// values would cost several times what the entries do. While the line is read nothing is judged, as it is not known
/// yet whether the answer will be accepted; `entries` does that.
class ListingReader {
public:
    /// Takes the result in; one that was taken before is forgotten. Throws DecodingError.
    void read(foundation::JSONElement& result);

    /// The entries in their order. Throws AdapterError::protocolError if no array was read, or at the first element
    /// that is no object; a size outside the range of a 64-bit integer stops the process.
    std::vector<KemviDirEntry> entries() &&;

private:
    void readElement(foundation::JSONElement& element);

    bool isArray_ = false;
    bool endsEarly_ = false;          // after the stats we have comes an element that is no object
    std::optional<double> unfitSize_; // the first size of an entry that does not fit
    std::vector<KemviDirEntry> entries_;
};

} // namespace kemvi
