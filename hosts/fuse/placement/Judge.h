#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace fusehost {

/// The ways of working that are compared.
enum class Way {
    apart,   // as the system sees fit
    waiting, // the same, and the host waits briefly before it sleeps
    together // on one processor, waiting briefly
};

const char* nameOf(Way way);

/// Finds out by measuring which way is fastest. Each is tried in turn, several times over, so that no chance decides;
/// what is kept is looked at again now and then, less often while the answer stays the same. Until the first trial
/// `together` is presumed: much work is over by then. Pure: times and costs are given.
class Judge {
public:
    using Clock = std::chrono::steady_clock;

    /// The way in which to work now.
    Way way() const;

    bool isTrying() const { return trying_; }

    /// What a request has cost, of enough requests, in the way in which work was done since the last call; nothing if
    /// there were too few. True if a trial has ended with this.
    bool add(Clock::time_point now, std::optional<double> cost);

    /// From now on work is done apart, until `until`; then as was found out before, if anything was.
    void bar(Clock::time_point until);

    /// `together` cannot be had. May be called again.
    void excludeTogether(bool excluded);

    /// What was measured last, for the log: cost of the others by that of `apart`.
    std::string result() const;

private:
    static constexpr std::size_t ways = 3;
    static constexpr std::size_t rounds = 6;

    void presume();
    void startTrial();
    void conclude(Clock::time_point now);
    double ratio(Way way) const;
    Way tried() const;

    std::size_t waysTried() const { return togetherExcluded_ ? ways - 1 : ways; }

    bool togetherExcluded_ = false;
    bool trying_ = false;
    std::size_t look_ = 0; // of the trial
    std::array<std::array<double, rounds>, ways> costs_{};
    Way kept_ = Way::together;
    std::optional<Way> before_;              // what the last trial has found
    std::optional<Clock::time_point> again_; // when to try again, once there was work
    std::chrono::seconds interval_{};        // between trials
    std::optional<Clock::time_point> barredUntil_;
    std::string result_;
};

} // namespace fusehost
