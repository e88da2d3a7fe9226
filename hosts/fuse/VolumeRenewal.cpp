#include "hosts/fuse/VolumeRenewal.h"

#include "foundation/Error.h"
#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/mounting/MountError.h"

#include <poll.h>
#include <utility>

namespace fusehost {

using std::chrono::milliseconds;

/// While it lives, requests wait no longer than the volume itself would be waited for.
class VolumeRenewal::HeldUp {
public:
    explicit HeldUp(VolumeRenewal& renewal) : renewal_(renewal) {
        if (const auto limit = renewal_.options_.operationTimeout)
            limitWaiting(std::chrono::ceil<milliseconds>(*limit));
    }

    ~HeldUp() { limitWaiting(std::nullopt); }

    HeldUp(const HeldUp&) = delete;
    HeldUp& operator=(const HeldUp&) = delete;

private:
    void limitWaiting(std::optional<milliseconds> limit) {
        const std::lock_guard guard(renewal_.lock_);
        if (renewal_.loop_ != nullptr)
            renewal_.loop_->limitWaiting(limit);
    }

    VolumeRenewal& renewal_;
};

VolumeRenewal::VolumeRenewal(VolumeCalls& volume, FileTree& tree, Source source, Supervision& supervision,
                             const MountOptions& options, const EventDescriptor& stop)
    : volume_(volume), tree_(tree), source_(std::move(source)), supervision_(supervision), options_(options),
      stop_(&stop) {}

void VolumeRenewal::ask(KernelCaches caches) noexcept {
    cachesAsked_ = caches;
    isAsked_ = true;
    wake();
}

void VolumeRenewal::look() noexcept {
    isToLook_ = true;
    wake();
}

void VolumeRenewal::use(SessionLoop* loop, int connection) noexcept {
    const std::lock_guard guard(lock_);
    loop_ = loop;
    connection_ = connection;
}

void VolumeRenewal::wake() noexcept {
    const std::lock_guard guard(lock_);
    if (loop_ != nullptr)
        quietly("calling for a restart", [&] { loop_->hand([this] { renewWhenCalled(); }); });
}

void VolumeRenewal::beforeRequest() noexcept {
    renewIfDue();
    changesBefore_ = volume_.changes();
}

// What is not repeated is answered first. The volume is renewed right after that.
bool VolumeRenewal::isToBeRepeated() noexcept {
    if (!volume_.hasEnded() || !isDue())
        return false;
    if (volume_.changes() == changesBefore_)
        return renew();
    lostChanges_ = lostChanges_ || isLastWriting_;
    wake();
    return false;
}

// At the end of the mount nobody may need another one any more.
void VolumeRenewal::renewWhenCalled() noexcept {
    if (!isLastWriting_)
        renewIfDue();
}

void VolumeRenewal::beginLastWriting(const EventDescriptor& refusal) noexcept {
    isLastWriting_ = true;
    isStopping_ = false;
    stop_ = &refusal;
}

// What is open and hidden can be given back only to one that answers.
void VolumeRenewal::endLastWriting() noexcept {
    renewIfDue();
}

void VolumeRenewal::finish() noexcept {
    const bool hasEnded = options_.onDeath != OnDeath::fail && !gaveUp_ && volume_.hasEnded();
    if (hasEnded)
        supervision_.settle();
    if (hasEnded || lostChanges_)
        supervision_.failedAtLast();
}

void VolumeRenewal::renewIfDue() noexcept {
    if (isDue())
        renew();
}

bool VolumeRenewal::isDue() const {
    if (isStopping_)
        return false;
    return isAsked_ || (!gaveUp_ && options_.onDeath != OnDeath::fail && (volume_.hasEnded() || isToLook_));
}

bool VolumeRenewal::isStopRequested() const {
    return !wait(milliseconds(0));
}

bool VolumeRenewal::wait(milliseconds pause) const {
    // Of the connection nothing is awaited but its end, of which poll tells in any case.
    pollfd ends[] = {{stop_->number(), POLLIN, 0}, {connection_, 0, 0}};
    return poll(ends, 2, static_cast<int>(pause.count())) == 0;
}

bool VolumeRenewal::renew() noexcept {
    if (isStopRequested()) {
        isStopping_ = true;
        return false;
    }
    bool isRenewed = false;
    quietly("starting anew behind the mount", [&] { isRenewed = tryToRenew(); });
    return isRenewed;
}

bool VolumeRenewal::tryToRenew() {
    isToLook_ = false;
    const bool isAsked = isAsked_.exchange(false);
    const bool hasEnded = volume_.hasEnded() || supervision_.hasEnded();
    if (!isAsked && !hasEnded)
        return false;
    gaveUp_ = false;
    const HeldUp heldUp(*this);
    leave(hasEnded);
    std::optional<milliseconds> pause = isAsked ? milliseconds(0) : supervision_.pause();
    while (pause) {
        if (!wait(*pause)) {
            isStopping_ = true;
            return false;
        }
        if (loadAnother())
            return true;
        pause = supervision_.pause();
    }
    gaveUp_ = true;
    supervision_.gaveUp();
    return false;
}

void VolumeRenewal::leave(bool hasEnded) {
    if (!hasEnded) {
        supervision_.leaving();
        tree_.leaveVolume();
        quietly("ending the volume", [&] { volume_.end(); });
        quietly("unloading the file system", [&] { source_.unload(); });
    }
    if (!supervision_.settle())
        tree_.loseVolume();
}

bool VolumeRenewal::loadAnother() {
    try {
        volume_.replace(source_.load());
        tree_.takeVolume();
    } catch (const foundation::NSErrorException& error) {
        supervision_.loadFailed(error.nsError());
        return false;
    } catch (const KernelError& error) {
        error.tell();
        supervision_.settle(); // there is a helper
        return false;
    } catch (const MountError&) {
        return false; // cannot be: it is a volume like the one before
    }
    if (cachesAsked_.exchange(KernelCaches::drop) == KernelCaches::drop)
        source_.dropCaches();
    supervision_.renewed();
    return true;
}

} // namespace fusehost
