#pragma once

#include "foundation/Descriptor.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <optional>
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
    /// Closes the connection and unmounts, lazily if the mount is in use. Takes away this very mount only: if another
    /// one lies on top of it the connection is closed and nothing else. Does nothing if not mounted.
    void unmount() noexcept;

    /// The minor device number of the mount (its major number is 0); nothing if it is not known.
    std::optional<unsigned> deviceMinor() const { return deviceMinor_; }

    fuse_session* get() const { return session_; }

    /// The descriptor of the connection; does not block.
    int descriptor() const;

    /// True once the kernel has the file system mounted nowhere, or has broken the connection off.
    bool isSevered() const;

private:
    /// The path by which the mount can be taken away; nothing if there is none.
    std::optional<std::string> ownPath() const;
    void dropConnection() noexcept;

    fuse_session* session_ = nullptr;
    std::string mountPoint_;
    bool mounted_ = false;
    std::optional<unsigned> deviceMinor_;
    foundation::Descriptor brokenPipe_; // put in the connection's place to drop it
};

} // namespace fusehost
