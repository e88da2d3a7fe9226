#pragma once

#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/NewItems.h"
#include "hosts/fuse/tree/OpenIDs.h"
#include "hosts/fuse/tree/Opening.h"

#include <string>
#include <sys/types.h>
#include <utility>

namespace fusehost {

/// Creates what the kernel asks for. Never empties a file that is there already, unless that is asked for. Modes have
/// the umask applied already. Failures are KernelErrors; EEXIST where the name is taken, ENAMETOOLONG, ESTALE where the
/// directory has gone.
class Creation {
public:
    Creation(Changes& changes, Nodes& nodes, HiddenFiles& hidden, NewItems& newItems, Attributes& attributes,
             Opening& opening);

    /// A file, which is then open; one that is there is opened, unless `flags` say O_EXCL.
    std::pair<TreeEntry, OpenFileID> create(Node& directory, const std::string& name, int flags, mode_t mode);
    /// A file that is not open. EOPNOTSUPP for anything but a file.
    TreeEntry makeNode(Node& directory, const std::string& name, mode_t mode);
    TreeEntry makeDirectory(Node& directory, const std::string& name, mode_t mode);
    TreeEntry makeSymbolicLink(Node& directory, const std::string& name, const std::string& contents);
    TreeEntry makeLink(Node& node, Node& directory, const std::string& name);

private:
    std::pair<TreeEntry, OpenFileID> openExisting(Node& node, const fskit::FSItemAttributes& found, int flags);
    FoundItem make(const NameChange& change, Node& directory, const std::string& name, fskit::FSItemType type,
                   mode_t mode);
    TreeEntry handOut(Node& directory, const FoundItem& made);

    Changes& changes_;
    Nodes& nodes_;
    HiddenFiles& hidden_;
    NewItems& newItems_;
    Attributes& attributes_;
    Opening& opening_;
};

} // namespace fusehost
