#pragma once

#include "hosts/fuse/support/EventDescriptor.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>

namespace fusehost {

/// What other threads want done by the one that executes the kernel's requests, to which the file tree belongs: each
/// errand is run whole, between two requests, in the order in which they came.
class Errands {
public:
    using Errand = std::function<void()>;

    /// Any thread. An errand that is never run is destroyed with this object.
    void add(Errand errand);

    /// Any thread; costs one load.
    bool arePending() const noexcept { return pending_.load(std::memory_order_acquire); }

    /// Readable while one is pending.
    int descriptor() const { return called_.number(); }

    /// Runs the first. What it throws goes to the log.
    void runNext() noexcept;

private:
    EventDescriptor called_;
    std::atomic<bool> pending_{false};
    std::mutex lock_; // guards what follows
    std::deque<Errand> errands_;
};

} // namespace fusehost
