#pragma once

namespace fusehost {

/// Sees to it that requests find a volume that answers, where the mount outlives its volume. Used by the thread that
/// executes the kernel's requests.
class Renewal {
public:
    virtual ~Renewal() = default;

    /// A request is about to be executed. Where the volume is known to have ended, it is another one after this.
    virtual void beforeRequest() noexcept = 0;

    /// The request has failed. True if that was for want of a volume that answers, nothing had been changed by then,
    /// and there is another one now: so the request is to be executed once more.
    virtual bool isToBeRepeated() noexcept = 0;
};

} // namespace fusehost
