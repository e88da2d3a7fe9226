#pragma once

#include "hosts/fuse/tree/NodeTable.h"

#include <string>
#include <vector>

namespace fusehost {

/// What the kernel is to forget of a tree, because it was changed otherwise than through the mount. To be told to it in
/// the order of the members: a name that is being looked up meanwhile is then known when its node is forgotten.
struct ToForget {
    struct Name {
        NodeID directory = 0;
        std::string name;
        bool isFile = false; // as far as is known
    };

    /// What names lead to, or that they lead to nothing.
    std::vector<Name> names;
    /// What nodes are and hold.
    std::vector<NodeID> nodes;
    /// What directories are, of whose entries some have changed.
    std::vector<NodeID> directories;
};

} // namespace fusehost
