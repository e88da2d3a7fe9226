#pragma once

#include "hosts/fuse/tree/NodeTable.h"

#include <sys/stat.h>

namespace fusehost {

/// A node handed to the kernel with its attributes; one reference is counted.
struct TreeEntry {
    NodeID node = 0;

    struct stat attributes {};
};

} // namespace fusehost
