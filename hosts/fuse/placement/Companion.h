#pragma once

#include <atomic>
#include <functional>
#include <sys/types.h>
#include <utility>

namespace fusehost {

/// The process, if any, that answers what the host asks of its volume, as far as whoever started it tells. Any thread.
class Companion {
public:
    /// `onPlaced` is called, on the thread that places, before the companion is put on a processor: should this process
    /// be killed, somebody else is to put it back.
    explicit Companion(std::function<void(int processor)> onPlaced = {}) : onPlaced_(std::move(onPlaced)) {}

    /// It runs. Whichever was there before it is one no more.
    void began(pid_t process) noexcept { process_ = process; }

    /// It answers no more.
    void ended(pid_t process) noexcept { process_.compare_exchange_strong(process, 0); }

    /// 0 if there is none.
    pid_t process() const noexcept { return process_; }

    void tellPlaced(int processor) const {
        if (onPlaced_)
            onPlaced_(processor);
    }

private:
    const std::function<void(int processor)> onPlaced_;
    std::atomic<pid_t> process_{0};
};

} // namespace fusehost
