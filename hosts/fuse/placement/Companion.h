#pragma once

#include <atomic>
#include <sys/types.h>

namespace fusehost {

/// The process, if any, that answers what the host asks of its volume, as far as whoever started it tells. Any thread.
class Companion {
public:
    /// It runs. Whichever was there before it is one no more.
    void began(pid_t process) noexcept { process_ = process; }

    /// It answers no more.
    void ended(pid_t process) noexcept { process_.compare_exchange_strong(process, 0); }

    /// 0 if there is none.
    pid_t process() const noexcept { return process_; }

private:
    std::atomic<pid_t> process_{0};
};

} // namespace fusehost
