#pragma once

#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Listings.h"
#include "hosts/fuse/tree/Nodes.h"

#include <string>

namespace fusehost {

/// Finds names for the kernel; such as a listing has just told of without a question. Remembers, for the create that
/// mostly follows, a name that it did not find. Failures are KernelErrors.
class Lookup {
public:
    /// `entryTimeout`: how long the kernel trusts names.
    Lookup(Nodes& nodes, HiddenFiles& hidden, Attributes& attributes, Absence& absence, Listings& listings,
           Seconds entryTimeout);

    /// ENOENT if there is no such name, ENAMETOOLONG if there can be none.
    TreeEntry find(Node& directory, const std::string& name);

private:
    Nodes& nodes_;
    HiddenFiles& hidden_;
    Attributes& attributes_;
    Absence& absence_;
    Listings& listings_;
    const Seconds entryTimeout_;
};

} // namespace fusehost
