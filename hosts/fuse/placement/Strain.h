#pragma once

#include "hosts/fuse/placement/Tasks.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

namespace fusehost {

/// Judges from what two threads had of processors whether sharing one harms them: they wait for it because others want
/// it too, or one of them uses it up. Where they wait as long apart, since all processors are wanted, it is not the
/// sharing. Pure arithmetic.
class Strain {
public:
    using Clock = std::chrono::steady_clock;

    /// Begins anew, keeping what is usual.
    void begin(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion);

    /// Adds what has happened, apart, since the last call. What was long ago counts ever less.
    void addUsual(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion);

    /// Adds what has happened, sharing, since the last call. Returns what is wrong, for the log; empty if nothing is.
    std::string add(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion);

    /// How long the two have waited for processors that others had, of all that was added since the last call or since
    /// it began anew.
    std::chrono::nanoseconds takeWaited();

private:
    struct Step {
        std::chrono::nanoseconds length{};
        std::chrono::nanoseconds waited{}; // beyond what two that take turns wait for each other
        std::chrono::nanoseconds burnt{};  // by the companion
    };

    static constexpr std::size_t kept = 4;

    Step take(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion);

    Clock::time_point last_;
    TaskTimes host_;
    TaskTimes companion_;
    std::array<Step, kept> steps_{};
    std::size_t next_ = 0;
    Step usual_;
    std::chrono::nanoseconds waited_{};
};

} // namespace fusehost
