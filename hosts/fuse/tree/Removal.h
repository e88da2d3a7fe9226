#pragma once

#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Listings.h"

#include <string>

namespace fusehost {

/// Removes files and directories. A file that is open is hidden instead. Failures are KernelErrors; ENOENT where there
/// is no such name.
class Removal {
public:
    Removal(Changes& changes, Nodes& nodes, HiddenFiles& hidden, Listings& listings);

    /// EISDIR for a directory. May end the node of that name.
    void removeFile(Node& directory, const std::string& name);
    /// ENOTDIR for anything else, ENOTEMPTY. May end the node of that name.
    void removeDirectory(Node& directory, const std::string& name);

private:
    Nodes::Resolved resolve(Node& directory, const std::string& name);
    void remove(const Nodes::Resolved& target, Node& directory, const std::string& name);

    Changes& changes_;
    Nodes& nodes_;
    HiddenFiles& hidden_;
    Listings& listings_;
};

} // namespace fusehost
