#pragma once

#include "fskit/FSVolume.h"
#include "hosts/fuse/Supervision.h"
#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/kernel/Renewal.h"
#include "hosts/fuse/kernel/SessionLoop.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/support/EventDescriptor.h"
#include "hosts/fuse/tree/FileTree.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace fusehost {

/// What the kernel has cached of the files, when another volume takes the place of one that was told to end.
enum class KernelCaches { drop, keep };

/// Puts another volume behind the tree: when the one before has ended, if the mount's options want that, and when
/// somebody asks for it. On the thread that executes requests, between two of them; those that come meanwhile wait.
///
/// `ask`, `look` and `use` may be called on any thread; the rest belongs to the thread that serves.
class VolumeRenewal final : public Renewal {
public:
    /// How another volume is had, and how the one before is ended in good order. Both may wait without limit.
    struct Source {
        std::function<std::shared_ptr<fskit::FSVolume>()> load; // throws foundation::NSErrorException, MountError
        std::function<void()> unload;
        std::function<void()> dropCaches; // has the kernel forget what it knows of the files
    };

    /// All must outlive this object. `stop` is readable when the mount is to end: then there are no more attempts.
    VolumeRenewal(VolumeCalls& volume, FileTree& tree, Source source, Supervision& supervision,
                  const MountOptions& options, const EventDescriptor& stop);
    VolumeRenewal(const VolumeRenewal&) = delete;
    VolumeRenewal& operator=(const VolumeRenewal&) = delete;

    /// Asks for another volume in place of one that may be well.
    void ask(KernelCaches caches) noexcept;
    /// The volume may have ended: Supervision tells.
    void look() noexcept;
    /// The loop that serves, or null: it is woken by the two above, and told how long requests may wait. `connection`
    /// is the session's: when it is broken off, as by unmounting, there are no more attempts.
    void use(SessionLoop* loop, int connection) noexcept;

    /// Does what is due.
    void renewIfDue() noexcept;

    /// The mount ends, but something is still to be written: from here on only `refusal`, readable, ends attempts.
    /// There is another volume when a request needs one. `refusal` must outlive this object.
    void beginLastWriting(const EventDescriptor& refusal) noexcept;
    /// It is done. The volume that is there then is let go.
    void endLastWriting() noexcept;
    /// The volume was let go. Tells if one has ended before.
    void finish() noexcept;

    void beforeRequest() noexcept override;
    bool isToBeRepeated() noexcept override;

private:
    class HeldUp;

    void renewWhenCalled() noexcept;
    bool isDue() const;
    bool isStopRequested() const;
    /// True if there is another volume.
    bool renew() noexcept;
    bool tryToRenew();
    /// Ends the volume as it is now.
    void leave(bool hasEnded);
    bool loadAnother();
    /// False if the mount is to end.
    bool wait(std::chrono::milliseconds pause) const;
    void wake() noexcept;

    VolumeCalls& volume_;
    FileTree& tree_;
    const Source source_;
    Supervision& supervision_;
    const MountOptions& options_;
    const EventDescriptor* stop_;
    std::uint64_t changesBefore_ = 0; // VolumeCalls::changes before the request under way
    bool isStopping_ = false;         // the mount is to end
    bool gaveUp_ = false;             // until somebody asks
    bool isLastWriting_ = false;
    bool lostChanges_ = false; // in the last writing
    std::atomic<bool> isAsked_{false};
    std::atomic<bool> isToLook_{false};
    std::atomic<KernelCaches> cachesAsked_{KernelCaches::drop};

    std::mutex lock_; // guards what follows
    SessionLoop* loop_ = nullptr;
    int connection_ = -1; // the serving thread's own
};

} // namespace fusehost
