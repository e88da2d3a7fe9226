#include "hosts/fuse/placement/Masks.h"

#include <cerrno>
#include <cstring>

namespace fusehost {
namespace {

/// A thread that was being started when the masks were put back shows a moment later.
constexpr int looksAfterwards = 3;
/// What a cheap look misses (one thread in place of another) is found by every so manyth.
constexpr int cheapLooks = 8;
/// Whoever is given its mask back may have started others meanwhile.
constexpr int mostRounds = 8;

} // namespace

std::string Masks::place(pid_t family, Task companion, const std::function<void(int processor)>& before) {
    const auto own = tasks_.affinity(host_.thread);
    const auto its = tasks_.affinity(companion.thread);
    if (!own || !its)
        return "the companion has gone";
    const ProcessorSet common = *own & *its;
    if (common.count() < 2)
        return "there are fewer than two processors for both";
    if (!tasks_.children(family) || !tasks_.times(companion))
        return "this system does not tell what is needed";
    const ProcessorSet unrestricted = tasks_.unrestricted();
    const int running = tasks_.processorOf(host_);
    processor_ = common.has(running) ? running : common.first();
    family_ = family;
    known_.clear();
    knownProcesses_.clear();
    for (const Task& task : everybody()) {
        known_.insert(task.thread);
        knownProcesses_.insert(task.process);
    }
    ours_ = {host_, toGiveBack(*own, unrestricted)};
    theirs_ = {companion, toGiveBack(*its, unrestricted)};
    before(processor_);
    if (const int error = tasks_.setAffinity(companion.thread, ProcessorSet::of(processor_)); error != 0)
        return std::string("the companion cannot be placed: ") + std::strerror(error);
    if (const int error = tasks_.setAffinity(host_.thread, ProcessorSet::of(processor_)); error != 0) {
        giveBack(theirs_);
        return std::string("the host cannot be placed: ") + std::strerror(error);
    }
    placed_ = true;
    familySeen_ = 0;
    return {};
}

// One that had all it could have gets all it can have: to name those that are there today would keep it from those that
// are allowed to it later.
ProcessorSet Masks::toGiveBack(const ProcessorSet& before, const ProcessorSet& unrestricted) const {
    return before == unrestricted ? ProcessorSet::all() : before;
}

bool Masks::isOnlyHere(pid_t thread) {
    const auto mask = tasks_.affinity(thread);
    return mask && *mask == ProcessorSet::of(processor_);
}

bool Masks::areOurs() {
    return isOnlyHere(ours_.task.thread) && isOnlyHere(theirs_.task.thread);
}

void Masks::giveBack(const Placed& placed) {
    // Where the processor itself was taken away, the system has changed the mask and nobody else.
    const bool isOurs = isOnlyHere(placed.task.thread) || !tasks_.unrestricted().has(processor_);
    if (isOurs)
        tasks_.setAffinity(placed.task.thread, placed.before);
}

void Masks::putBack() {
    if (!placed_)
        return;
    placed_ = false;
    giveBack(theirs_);
    giveBack(ours_);
    looksLeft_ = looksAfterwards;
    lookAfterOthers();
}

std::vector<Task> Masks::everybody() {
    std::vector<Task> found = threadsOfFamily(tasks_, family_);
    for (const pid_t thread : tasks_.threads(host_.process))
        found.push_back({host_.process, thread});
    return found;
}

int Masks::lookAfterOthers() {
    if (isSettled())
        return 0;
    if (!placed_)
        --looksLeft_;
    const std::uint64_t family = tasks_.family(theirs_.task) * 31 + tasks_.family({host_.process, host_.thread});
    if (placed_ && family == familySeen_ && ++looksSinceAll_ < cheapLooks)
        return 0;
    familySeen_ = family;
    looksSinceAll_ = 0;
    int newProcesses = 0;
    for (int round = 0; round < mostRounds && lookOnce(newProcesses) > 0; ++round) {
    }
    return newProcesses;
}

int Masks::lookOnce(int& newProcesses) {
    int changed = 0;
    std::unordered_set<pid_t> seen;
    std::unordered_set<pid_t> processes;
    for (const Task& task : everybody()) {
        seen.insert(task.thread);
        if (processes.insert(task.process).second && !knownProcesses_.contains(task.process))
            ++newProcesses;
        if (known_.contains(task.thread) || !isOnlyHere(task.thread))
            continue;
        tasks_.setAffinity(task.thread, (task.process == host_.process ? ours_ : theirs_).before);
        ++changed;
    }
    known_ = std::move(seen);
    knownProcesses_ = std::move(processes);
    return changed;
}

} // namespace fusehost
