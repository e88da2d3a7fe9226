#pragma once

#include "foundation/NSError.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace fusehost {

/// What an embedding program knows of a state in which a volume fails, beyond what the volume says ("the helper was
/// killed by signal 9"); empty if nothing. Asked once per state; may take a moment.
using StateExplanation = std::function<std::string(const foundation::ErrorOrigin&)>;

/// Tells the log why operations fail, briefly however many do: failures of one kind (operation and error) make one line
/// per interval, with their number; errors that last make one line per state. Failures that are part of everyday life,
/// such as a name that is not there, are told at debug level alone. Safe on any thread.
class FailureLog {
public:
    static constexpr std::chrono::milliseconds usualInterval{1000};

    explicit FailureLog(StateExplanation explain = {}, std::chrono::milliseconds interval = usualInterval);
    /// Tells what was counted and not yet told.
    ~FailureLog();
    FailureLog(const FailureLog&) = delete;
    FailureLog& operator=(const FailureLog&) = delete;

    /// Takes note of a failure that programs see as `number`, an errno value of the running kernel.
    void note(const foundation::NSError& error, int number) noexcept;

    /// What lasted is over: should it come again, it is told again.
    void forgetState() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    struct Kind {
        Clock::time_point told;
        std::uint64_t untold = 0;
        foundation::NSError last; // of those untold
        int number = 0;
    };

    void noteState(const foundation::NSError& error);
    void noteKind(const foundation::NSError& error, int number);
    bool isOver(const Kind& kind, Clock::time_point now) const;
    void startTelling();
    void tellCounted();
    Clock::time_point tellDue(Clock::time_point now);

    const StateExplanation explain_;
    const std::chrono::milliseconds interval_;
    std::mutex lock_; // guards all below; never held while a line is explained
    std::condition_variable changed_;
    std::string state_; // the last one told
    std::map<std::string, Kind> kinds_;
    std::thread teller_;  // tells the counts when their time has come; started when there is one
    bool counts_ = false; // there is something untold
    bool ending_ = false;
};

} // namespace fusehost
