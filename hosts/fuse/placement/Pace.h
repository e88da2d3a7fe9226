#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace fusehost {

/// How fast requests come: noted by the thread that executes them, at next to no cost, read by the one that places. It
/// also says how long the executing thread is to wait awake for the next request.
class Pace {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = Clock::duration;

    /// The longest wait awake.
    static constexpr Duration longestWait = std::chrono::microseconds(50);
    /// Requests that come farther apart say nothing of what one costs: their program had other things to do.
    static constexpr Duration longestGap = std::chrono::milliseconds(2);
    /// So many requests close together are work, fewer are not worth a look.
    static constexpr int busyAfter = 32;

    /// `onBusy` is called, by the executing thread, when work begins after `rest`.
    explicit Pace(std::function<void()> onBusy) : onBusy_(std::move(onBusy)) {}

    // The executing thread

    /// A request has been read.
    void arrived(Clock::time_point now) noexcept;

    /// How long to look for the next request before sleeping; 0 where that does not pay: the last ones mostly came
    /// later, or waiting is not allowed.
    Duration waitingTime() const noexcept;
    /// The request that was waited for, asleep or awake, came after this time.
    void waited(Duration time, bool asleep) noexcept;

    // The placing thread

    /// The gaps between requests that came since the last call, at most the last 512 of them, in nanoseconds; those
    /// above `longestGap` are left out. Returns how many requests there were.
    std::uint64_t take(std::vector<std::uint32_t>& gaps);

    void allowWaiting(bool allowed) noexcept { waitingAllowed_ = allowed; }

    /// From now on `onBusy` is called when work begins.
    void rest() noexcept { resting_ = true; }

private:
    static constexpr std::size_t kept = 512;

    const std::function<void()> onBusy_;
    // The executing thread's own
    Clock::time_point last_;
    int streak_ = 0;
    std::uint8_t inTime_ = 0; // of the last eight requests, one bit each

    std::array<std::atomic<std::uint32_t>, kept> gaps_{};
    std::atomic<std::uint64_t> count_{0};
    std::atomic<bool> waitingAllowed_{false};
    std::atomic<bool> resting_{true};
    std::uint64_t taken_ = 0; // the placing thread's own
};

/// What a request has cost, judging by the gaps between many: their mean without the longest tenth. Nothing if they are
/// too few to say.
std::optional<double> typicalCost(std::vector<std::uint32_t>& gaps);

} // namespace fusehost
