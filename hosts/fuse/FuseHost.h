#pragma once

#include "fskit/FSUnaryFileSystem.h"
#include "hosts/fuse/Supervision.h"
#include "hosts/fuse/VolumeRenewal.h"
#include "hosts/fuse/calls/FailureLog.h"
#include "hosts/fuse/monitor/Monitor.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/placement/Companion.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fusehost {

/// Puts one volume of an fskit file system before the Linux kernel. Used in this order by one thread:
/// load, mount, serve, shutdown. Only `requestStop`, `refuseRequests`, `invalidate`, `restart`, `lookAtVolume` and
/// `monitor` may be called from elsewhere.
class FuseHost {
public:
    /// `explain` is asked, on any thread, when the volume falls into a state in which operations fail. `companion` is
    /// the process that answers the volume, if it is told of one. `supervision` looks after the volume's life; without
    /// it a volume that has ended stays so. Both must outlive this object and may be null.
    FuseHost(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
             MountOptions options, StateExplanation explain = {}, const Companion* companion = nullptr,
             Supervision* supervision = nullptr);
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

    /// True while the volume is served and mounted somewhere, be it where this process cannot see it. Any thread; waits
    /// for nothing.
    bool isMounted() noexcept;

    /// Asks `serve` to return as soon as the operation in hand is done and all is written. Async-signal-safe, any
    /// thread.
    void requestStop() noexcept;

    /// From now on nothing is asked of the file system: what is not written then is lost, and whoever waits gets EIO.
    /// For an end that the file system holds up. Any thread.
    void refuseRequests() noexcept;

    /// Called once: with the number of names and files that the kernel was told to forget, or with nothing if the mount
    /// ends before that.
    using WhenInvalidated = std::function<void(std::optional<std::size_t>)>;

    /// Something was made, removed, replaced or written at these paths of the served tree, or anywhere beneath them,
    /// otherwise than through the mount: neither the host nor the kernel is to trust what they know of it. What
    /// programs have written is kept, and written first where the kernel still holds it. Paths that lead nowhere are as
    /// good as others: "/" is everything. Any thread. Returns at once; `whenDone` is called on another thread, or,
    /// where nothing is served, on this one. It takes as long as the operation in hand.
    void invalidate(std::vector<std::string> paths, WhenInvalidated whenDone);

    /// What the mount is doing and has done: to be read by any thread, for as long as this object lives.
    Monitor& monitor() noexcept;

    /// Has another volume loaded in the place of the present one, which is ended in good order if it is well: all that
    /// the kernel has in hand goes on. Returns at once; Supervision is told what comes of it. Nothing comes of it while
    /// nothing is served. Any thread, once loaded.
    void restart(KernelCaches caches) noexcept;

    /// The volume may have ended by itself: Supervision tells. Any thread, once loaded.
    void lookAtVolume() noexcept;

    /// Gives back what is open and ends the volume. Blocks until the file system has let go of everything, which may
    /// wait for a helper process without limit.
    void shutdown();

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace fusehost
