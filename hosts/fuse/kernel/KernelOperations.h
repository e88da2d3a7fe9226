#pragma once

#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/FileTree.h"

#include <cstddef>
#include <vector>

struct fuse_lowlevel_ops;

namespace fusehost {

/// What the kernel's operations work on; handed to libfuse as the session's user data.
struct KernelContext {
    FileTree& tree;
    const MountOptions& options;
    std::vector<std::byte> buffer; // for reads and listings; reused, since one operation runs at a time
};

/// libfuse's table of operations. Each finds its way into the FileTree of the session's KernelContext, and turns the
/// result or the KernelError into one reply. What was handed out with a reply that the kernel no longer wanted is
/// taken back.
const fuse_lowlevel_ops& kernelOperations();

} // namespace fusehost
