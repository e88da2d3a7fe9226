#pragma once

struct fuse_lowlevel_ops;

namespace fusehost {

/// libfuse's table of operations. Each finds its way into the FileTree of the session's KernelContext, and turns the
/// result or the KernelError into one reply. What was handed out with a reply that the kernel no longer wanted is
/// taken back.
const fuse_lowlevel_ops& kernelOperations();

} // namespace fusehost
