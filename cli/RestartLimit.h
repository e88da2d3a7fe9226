#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>

namespace cli {

/// When a helper that fails again and again is started once more, and when no more. A failure is an end that nobody
/// asked for, or a start that did not come to a first answer. A helper that has served for a while ends the row.
class RestartLimit {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds firstPause{100}; // doubled with each failure in a row
    static constexpr std::chrono::milliseconds longestPause{10'000};
    static constexpr std::size_t mostFailures = 10;
    static constexpr std::chrono::minutes window{2}; // within which so many are too many

    /// A helper serves.
    void began(Clock::time_point now) { servesSince_ = now; }

    /// How long to wait before the next start; nothing if there were too many failures.
    std::optional<std::chrono::milliseconds> failed(Clock::time_point now);

    /// Somebody looks after it: what was before does not count.
    void forget() { failures_.clear(); }

    /// Failures in the row.
    std::size_t failures() const { return failures_.size(); }

private:
    std::optional<Clock::time_point> servesSince_;
    std::deque<Clock::time_point> failures_;
};

} // namespace cli
