#pragma once

#include "hosts/fuse/placement/Companion.h"
#include "hosts/fuse/placement/Demand.h"
#include "hosts/fuse/placement/Judge.h"
#include "hosts/fuse/placement/Masks.h"
#include "hosts/fuse/placement/Pace.h"
#include "hosts/fuse/placement/Strain.h"
#include "hosts/fuse/placement/Tasks.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fusehost {

/// Decides, step by step, whether the executing thread and its companion share a processor, and does it. Knows no clock
/// but the one it is given. To be used by one thread.
class Placer {
public:
    using Clock = std::chrono::steady_clock;

    /// How far steps are apart while there is something to see to. What somebody starts with a mask that is not its own
    /// has it no longer than that.
    static constexpr auto stepLength = std::chrono::milliseconds(5);
    /// The same while nothing is placed or tried.
    static constexpr auto longStep = std::chrono::milliseconds(25);
    /// Without a request for so long the mount is idle.
    static constexpr auto idleAfter = std::chrono::milliseconds(50);

    /// `host` is the thread that executes requests. All must outlive this object.
    Placer(Tasks& tasks, Pace& pace, const Companion& companion, Task host);
    /// Puts back what is not its own.
    ~Placer();
    Placer(const Placer&) = delete;
    Placer& operator=(const Placer&) = delete;

    /// Looks at what has happened since the last step and does what follows. False when the mount is idle and
    /// everything is as it was: nothing is to be done then until work begins.
    bool step(Clock::time_point now);

    /// When the next step is due.
    std::chrono::milliseconds untilNextStep() const;

    /// Puts everything back. To be called again, a step later, until it returns true: threads that are just being
    /// started then have shown.
    bool end(Clock::time_point now);

    Way way() const { return way_; }

private:
    void meetCompanion(Clock::time_point now, pid_t family);
    bool knowsWhoAnswers();
    void checkDemand(Clock::time_point now);
    void checkHarm(Clock::time_point now);
    std::optional<double> costOfLook();
    void forgetLook();
    void giveUp(Clock::time_point now, const std::string& reason);
    void go(Clock::time_point now, Way way);
    bool place();
    void beIdle(Clock::time_point now);

    Tasks& tasks_;
    Pace& pace_;
    const Companion& companion_;
    const Task host_;
    Masks masks_;
    const int processors_; // of the machine
    Strain strain_;
    Demand demand_;
    Judge judge_;
    Way way_ = Way::apart;
    pid_t family_ = 0;
    std::optional<Task> answering_;                         // the thread of the family that answers
    std::vector<std::pair<Task, std::uint64_t>> mayAnswer_; // with the turns each has had
    std::vector<std::uint32_t> gaps_;                       // of the look under way
    std::uint64_t requests_ = 0;                            // likewise
    bool isResuming_ = true;                                // work has just begun
    Clock::time_point lastRequest_;
    Clock::time_point lastGoneWell_; // since when nothing had to be given up
    std::chrono::milliseconds bar_;  // how long the next harm is remembered
    std::string lastRefusal_;
};

} // namespace fusehost
