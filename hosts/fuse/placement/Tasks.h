#pragma once

#include "hosts/fuse/placement/ProcessorSet.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace fusehost {

/// One thread of a process. A process's first thread has its number.
struct Task {
    pid_t process = 0;
    pid_t thread = 0;

    bool operator==(const Task&) const = default;
};

/// What a thread has had of processors since it began.
struct TaskTimes {
    std::chrono::nanoseconds run{};     // on a processor
    std::chrono::nanoseconds delayed{}; // ready to run, and another was
    std::uint64_t turns = 0;            // how many times it was given a processor
};

/// What placement asks and tells the operating system. All that can fail does so for a thread that has ended, or that
/// belongs to another user.
class Tasks {
public:
    virtual ~Tasks() = default;

    virtual std::optional<ProcessorSet> affinity(pid_t thread) = 0;
    /// An errno value; 0 on success.
    virtual int setAffinity(pid_t thread, const ProcessorSet& processors) = 0;
    /// The processors that a thread of this process gets when it asks for all there are.
    virtual ProcessorSet unrestricted() = 0;
    /// The processor that the thread runs on or ran on last; -1 if it is not known.
    virtual int processorOf(const Task& task) = 0;
    /// Nothing where the system does not count.
    virtual std::optional<TaskTimes> times(const Task& task) = 0;

    virtual std::vector<pid_t> threads(pid_t process) = 0;
    /// The child processes that the process's threads have started. Nothing where the system does not tell.
    virtual std::optional<std::vector<pid_t>> children(pid_t process) = 0;
    /// Cheap: another number says that the process has other threads, or this thread of it other children; the same
    /// number that nothing has most likely changed.
    virtual std::uint64_t family(const Task& task) = 0;

    /// How many threads of the machine run or are ready to; 0 where it is not known.
    virtual int runnable() = 0;
    /// How many processors the machine has in use.
    virtual int processors() = 0;

    /// Nothing will be asked for a while: what is kept for that is given back.
    virtual void rest() = 0;
};

/// The threads of a process and of all its descendants.
std::vector<Task> threadsOfFamily(Tasks& tasks, pid_t family);

} // namespace fusehost
