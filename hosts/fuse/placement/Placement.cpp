#include "hosts/fuse/placement/Placement.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"
#include "hosts/fuse/support/HostLog.h"

#include <unistd.h>

namespace fusehost {

bool Placement::isPossible() {
    LinuxTasks tasks;
    const auto processors = tasks.affinity(0);
    const Task self{getpid(), gettid()};
    if (processors && processors->count() >= 2 && tasks.times(self) && tasks.children(self.process))
        return true;
    hostLog().debug({"placement: off: one processor, or a system that does not tell how long threads wait"});
    return false;
}

Placement::Placement(const Companion& companion)
    : pace_([this] {
          const std::lock_guard guard(lock_);
          isBusy_ = true;
          changed_.notify_all();
      }),
      placer_(tasks_, pace_, companion, {getpid(), gettid()}) {
    thread_ = startBackgroundThread([this] { quietly("the end of placing threads", [&] { run(); }); });
}

Placement::~Placement() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Placement::run() {
    while (waitForWork())
        quietly("placing threads", [&] {
            while (placer_.step(Placer::Clock::now()) && waitForStep()) {
            }
        });
    while (!placer_.end(Placer::Clock::now()))
        std::this_thread::sleep_for(Placer::stepLength);
}

bool Placement::waitForWork() {
    pace_.rest();
    std::unique_lock guard(lock_);
    changed_.wait(guard, [&] { return ending_ || isBusy_; });
    isBusy_ = false;
    return !ending_;
}

bool Placement::waitForStep() {
    const auto time = placer_.untilNextStep();
    std::unique_lock guard(lock_);
    return !changed_.wait_for(guard, time, [&] { return ending_; });
}

} // namespace fusehost
