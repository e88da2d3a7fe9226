#pragma once

#include "hosts/fuse/KernelOperations.h"
#include "hosts/fuse/MountOptions.h"

#include <string>

struct fuse_session;

namespace fusehost {

/// The connection to the kernel: a libfuse session and its mount. Not thread-safe, except that its descriptor may be
/// polled and written by other threads between `mount` and `unmount`.
class KernelSession {
public:
    /// Throws MountError.
    KernelSession(KernelContext& context, const std::string& source, const MountOptions& options);
    ~KernelSession();
    KernelSession(const KernelSession&) = delete;
    KernelSession& operator=(const KernelSession&) = delete;

    /// Throws MountError.
    void mount(const std::string& mountPoint);
    /// Unmounts, lazily if the mount is in use, and closes the connection. Does nothing if not mounted.
    void unmount();

    fuse_session* get() const { return session_; }

    /// The descriptor of the connection; does not block.
    int descriptor() const;

private:
    fuse_session* session_ = nullptr;
    bool mounted_ = false;
};

} // namespace fusehost
