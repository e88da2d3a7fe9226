#pragma once

#include "hosts/fuse/kernel/Renewal.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/FileTree.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

struct fuse_entry_param;
struct fuse_file_info;
struct fuse_req;
struct fuse_session;

namespace fusehost {

/// What came of the request under way, for whoever counts.
struct RequestOutcome {
    int error = 0;                      // the errno value that it was answered with
    std::optional<std::uint64_t> bytes; // of a file's contents that were read or written
};

/// What the kernel's operations work on; handed to libfuse as the session's user data.
struct KernelContext {
    FileTree& tree;
    const MountOptions& options;
    std::vector<std::byte> buffer;   // for reads and listings; reused, since one operation runs at a time
    RequestOutcome outcome{};        // of the request that is executed
    Renewal* renewal = nullptr;      // null where nobody looks after the volume
    fuse_session* session = nullptr; // null while there is none

    /// Room for `size` bytes, whose contents are of no account. The next call ends it.
    std::span<std::byte> bufferFor(std::size_t size);
};

/// The context of the session that a request belongs to.
KernelContext& contextOf(fuse_req* request);

/// A node as libfuse hands it to the kernel, with the timeouts of the mount.
fuse_entry_param entryParam(const KernelContext& context, const TreeEntry& entry);

OpenDirectoryID directoryOf(const fuse_file_info& directory);

/// For references that the kernel gives back, or never got: nobody is there to be told of a failure.
void forgetQuietly(FileTree& tree, NodeID node, std::uint64_t lookups) noexcept;

} // namespace fusehost
