#pragma once

#include "hosts/fuse/tree/NodeTable.h"

#include <chrono>
#include <sys/stat.h>

namespace fusehost {

/// A node handed to the kernel with its attributes; one reference is counted.
struct TreeEntry {
    NodeID node = 0;

    struct stat attributes {};

    std::chrono::nanoseconds age{0}; // since the helper said so: that much less may it be trusted
};

} // namespace fusehost
