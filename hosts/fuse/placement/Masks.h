#pragma once

#include "hosts/fuse/placement/Tasks.h"

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

namespace fusehost {

/// Puts two threads on one processor and takes care that nobody else is affected: what they start while they are there
/// inherits their processor and is given back what its starter had before. Only a mask that holds that one processor
/// and nothing else is ever changed back, and a thread's only when it is first seen, so that one who chooses its own
/// processors keeps them. To be used by one thread.
class Masks {
public:
    /// `host` is a thread of this process.
    Masks(Tasks& tasks, Task host) : tasks_(tasks), host_(host) {}

    /// Puts host and companion on one processor that both may use. `family` is the process that the companion is or
    /// descends from; all its descendants are looked after. `before` is called before anything is changed. Returns why
    /// not if it cannot be; nothing is changed then.
    std::string place(
        pid_t family, Task companion, const std::function<void(int processor)>& before = [](int) {});

    bool arePlaced() const { return placed_; }

    /// -1 before the first placement.
    int processor() const { return processor_; }

    /// False if somebody else has since changed what one of the two may run on.
    bool areOurs();

    /// Gives both what they had before, unless somebody else has changed it.
    void putBack();

    /// Gives threads and processes that the two have started their masks, and returns how many processes are new. To be
    /// called every so often as long as they are placed, and after they were put back until `isSettled`.
    int lookAfterOthers();

    /// True when nothing started while they were placed can have gone unnoticed.
    bool isSettled() const { return !placed_ && looksLeft_ == 0; }

private:
    struct Placed {
        Task task;
        ProcessorSet before; // what it is given back
    };

    ProcessorSet toGiveBack(const ProcessorSet& before, const ProcessorSet& unrestricted) const;
    void giveBack(const Placed& placed);
    bool isOnlyHere(pid_t thread);
    std::vector<Task> everybody();
    /// Returns the number of threads whose masks were changed.
    int lookOnce(int& newProcesses);

    Tasks& tasks_;
    const Task host_;
    pid_t family_ = 0;
    int processor_ = -1;
    bool placed_ = false;
    int looksLeft_ = 0;
    Placed ours_;
    Placed theirs_;
    std::unordered_set<pid_t> known_; // threads that need no look any more
    std::unordered_set<pid_t> knownProcesses_;
    std::uint64_t familySeen_ = 0;
    int looksSinceAll_ = 0;
};

} // namespace fusehost
