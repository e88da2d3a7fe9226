#pragma once

#include "cli/check/StopSignals.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace cli::check {

/// Thrown when a signal has ended an examination.
struct Interrupted {};

/// What a command attends to while it waits for a helper that it asks: the signals that ask it to end, and the user,
/// who is told on standard error how far it is when it lasts longer than two seconds. Not thread-safe; the signals of
/// stopSignals() must be blocked. One that was ignored when the command was started stays ignored.
///
/// The first signal gives the helper two seconds for the answer that is under way. What was made is then removed, as
/// long as each answer comes within three seconds, for a minute at most. A second signal ends all waiting at once.
class Attention {
public:
    using Clock = std::chrono::steady_clock;

    /// `command` is its name, for the user. Throws CommandError if there is no descriptor for the signals.
    explicit Attention(std::string command);
    Attention(const Attention&) = delete;
    Attention& operator=(const Attention&) = delete;

    /// What is being done from here on, for the user.
    void begin(std::string what) { doing_ = std::move(what); }

    /// Something may be made at this place, which a signal will have removed.
    void makingAt(std::string place) { place_ = std::move(place); }

    /// From here on what was made is being removed.
    void beginCleaning();

    void endCleaning() { cleaning_ = false; }

    /// Another exchange with the helper begins.
    void beginExchange();

    /// Waits until the descriptor is ready for one of the events of poll(2). False if it is not by `deadline`, or where
    /// a signal has shortened the wait.
    bool untilReady(int descriptor, short events, Clock::time_point deadline);

    /// A signal has asked for the end.
    bool interrupted() const { return received_ > 0; }

    /// A signal has ended an examination: there is nothing more to ask, unless what was made is being removed.
    bool mustStop() const { return interrupted() && !cleaning_; }

    /// All waiting is over.
    bool gaveUp() const { return received_ > 1 || (interrupted() && cleaning_ && Clock::now() >= cleaningEnd_); }

private:
    void takeSignals();
    void onSignal();
    void tellProgress(Clock::time_point now);

    const std::string command_;
    StopSignals signals_;
    int received_ = 0;
    bool cleaning_ = false;
    Clock::time_point waitsEnd_ = Clock::time_point::max();
    Clock::time_point cleaningEnd_ = Clock::time_point::max();

    const Clock::time_point started_ = Clock::now();
    Clock::time_point tellAt_;
    std::string doing_;
    std::string place_;
    std::size_t exchanges_ = 0;
};

} // namespace cli::check
