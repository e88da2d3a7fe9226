#pragma once

#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Nodes.h"

#include <string>

namespace fusehost {

/// Finds names for the kernel. Remembers, for the create that mostly follows, a name that it did not find. Failures are
/// KernelErrors.
class Lookup {
public:
    Lookup(Nodes& nodes, HiddenFiles& hidden, Attributes& attributes, Absence& absence);

    /// ENOENT if there is no such name, ENAMETOOLONG if there can be none.
    TreeEntry find(Node& directory, const std::string& name);

private:
    Nodes& nodes_;
    HiddenFiles& hidden_;
    Attributes& attributes_;
    Absence& absence_;
};

} // namespace fusehost
