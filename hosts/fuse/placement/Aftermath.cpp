#include "hosts/fuse/placement/Aftermath.h"

namespace fusehost {
namespace {

/// Whoever is given its mask back may have started others meanwhile.
constexpr int mostRounds = 8;

int giveBackOnce(Tasks& tasks, pid_t family, const ProcessorSet& placed, const ProcessorSet& own) {
    int changed = 0;
    for (const Task& task : threadsOfFamily(tasks, family))
        if (const auto mask = tasks.affinity(task.thread); mask && *mask == placed)
            changed += tasks.setAffinity(task.thread, own) == 0 ? 1 : 0;
    return changed;
}

} // namespace

void giveBackAfterDeath(Tasks& tasks, pid_t family, int processor) {
    const auto own = tasks.affinity(0);
    if (!own || own->count() < 2)
        return;
    const ProcessorSet placed = ProcessorSet::of(processor);
    for (int round = 0; round < mostRounds && giveBackOnce(tasks, family, placed, *own) > 0; ++round) {
    }
}

} // namespace fusehost
