#pragma once

#include "fskit/FSUnaryFileSystem.h"
#include "hosts/fuse/calls/FailureLog.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/placement/Companion.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace fusehost {

/// Puts one volume of an fskit file system before the Linux kernel. Used in this order by one thread:
/// load, mount, serve, shutdown. Only `requestStop` and `refuseRequests` may be called from elsewhere.
class FuseHost {
public:
    /// `explain` is asked, on any thread, when the volume falls into a state in which operations fail. `companion` is
    /// the process that answers the volume, if it is told of one; it must outlive this object and may be null.
    FuseHost(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
             MountOptions options, StateExplanation explain = {}, const Companion* companion = nullptr);
    /// Unmounts if still mounted. Does not shut the volume down.
    ~FuseHost();
    FuseHost(const FuseHost&) = delete;
    FuseHost& operator=(const FuseHost&) = delete;

    /// Loads the source directory and activates its volume. Throws foundation::NSErrorException with the error that
    /// the file system replied, unchanged.
    void load();

    /// Mounts the volume. Nothing is served before `serve`. Throws MountError.
    void mount();

    /// The minor device number of the mount, by which the mount table and programs know it; nothing before `mount`.
    std::optional<unsigned> deviceMinor() const;

    /// Serves the kernel until the volume is unmounted from outside or a stop is requested; unmounts in either case.
    /// Where a stop was requested the kernel first has to write what programs have changed and it still holds;
    /// `onWriting` is called before that if there may be such. Returns false if the connection to the kernel failed.
    bool serve(const std::function<void()>& onWriting = [] {});

    /// Asks `serve` to return as soon as the operation in hand is done and all is written. Async-signal-safe, any
    /// thread.
    void requestStop() noexcept;

    /// From now on nothing is asked of the file system: what is not written then is lost, and whoever waits gets EIO.
    /// For an end that the file system holds up. Any thread.
    void refuseRequests() noexcept;

    /// Gives back what is open and ends the volume. Blocks until the file system has let go of everything, which may
    /// wait for a helper process without limit.
    void shutdown();

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace fusehost
