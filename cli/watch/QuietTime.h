#pragma once

#include <chrono>
#include <optional>

namespace cli {

/// Gathers what happens in quick succession into one: it is time when nothing has happened for a while, or when the
/// first has waited for long. Nothing is to be waited for while nothing has happened.
class QuietTime {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds quiet{100};
    static constexpr std::chrono::milliseconds longest{2'000};

    /// Something has happened.
    void saw(Clock::time_point now);

    /// How long until it is time; nothing while there is nothing to wait for.
    std::optional<std::chrono::milliseconds> left(Clock::time_point now) const;

    /// True once, when it is time.
    bool isOver(Clock::time_point now);

private:
    std::optional<Clock::time_point> first_; // that has not been reported yet
    Clock::time_point last_;
};

} // namespace cli
