#pragma once

#include "hosts/fuse/placement/Tasks.h"

#include <functional>
#include <map>
#include <vector>

namespace fusehosttests {

/// A machine whose threads the test plays.
class PlayedTasks final : public fusehost::Tasks {
public:
    struct Thread {
        pid_t process = 0;
        fusehost::ProcessorSet mask;
        fusehost::TaskTimes times{{}, {}, 1};
        int processor = 0;
    };

    explicit PlayedTasks(int processors) {
        for (int processor = 0; processor < processors; ++processor)
            machine.add(processor);
    }

    /// A thread that may run on the whole machine.
    void start(pid_t process, pid_t thread) {
        threadsOf[thread] = {process, machine, {{}, {}, 1}, 0};
        if (process == thread)
            childrenOf[process];
    }

    /// A thread or process that `starter` starts: it inherits its mask.
    void startFrom(pid_t starter, pid_t process, pid_t thread) {
        start(process, thread);
        threadsOf[thread].mask = threadsOf[starter].mask;
        if (process == thread)
            childrenOf[threadsOf[starter].process].push_back(process);
    }

    fusehost::ProcessorSet maskOf(pid_t thread) const { return threadsOf.at(thread).mask; }

    std::optional<fusehost::ProcessorSet> affinity(pid_t thread) override {
        const auto found = threadsOf.find(thread);
        return found != threadsOf.end() ? std::optional(found->second.mask) : std::nullopt;
    }

    int setAffinity(pid_t thread, const fusehost::ProcessorSet& processors) override {
        ++changes;
        asked[thread] = processors;
        if (const int error = refuse(thread); error != 0)
            return error;
        threadsOf.at(thread).mask = processors & machine;
        onChange(thread);
        return 0;
    }

    fusehost::ProcessorSet unrestricted() override { return machine; }

    int processorOf(const fusehost::Task& task) override { return threadsOf.at(task.thread).processor; }

    std::optional<fusehost::TaskTimes> times(const fusehost::Task& task) override {
        const auto found = threadsOf.find(task.thread);
        return counts && found != threadsOf.end() ? std::optional(found->second.times) : std::nullopt;
    }

    std::vector<pid_t> threads(pid_t process) override {
        std::vector<pid_t> found;
        for (const auto& [number, thread] : threadsOf)
            if (thread.process == process)
                found.push_back(number);
        return found;
    }

    std::optional<std::vector<pid_t>> children(pid_t process) override { return childrenOf[process]; }

    std::uint64_t family(const fusehost::Task& task) override {
        return threads(task.process).size() * 100 + childrenOf[task.process].size();
    }

    int runnable() override { return ready; }

    int processors() override { return machine.count(); }

    void rest() override { ++rests; }

    fusehost::ProcessorSet machine;
    std::map<pid_t, Thread> threadsOf;
    std::map<pid_t, std::vector<pid_t>> childrenOf;
    std::map<pid_t, fusehost::ProcessorSet> asked; // the last mask that was asked for, by thread
    std::function<int(pid_t)> refuse = [](pid_t) { return 0; };
    std::function<void(pid_t)> onChange = [](pid_t) {};
    int ready = 2;
    int changes = 0;
    int rests = 0;
    bool counts = true; // the system counts how long threads wait
};

inline fusehost::ProcessorSet processors(std::initializer_list<int> numbers) {
    fusehost::ProcessorSet set;
    for (const int number : numbers)
        set.add(number);
    return set;
}

} // namespace fusehosttests
