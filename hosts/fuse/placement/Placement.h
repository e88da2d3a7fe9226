#pragma once

#include "hosts/fuse/placement/Companion.h"
#include "hosts/fuse/placement/LinuxTasks.h"
#include "hosts/fuse/placement/Pace.h"
#include "hosts/fuse/placement/Placer.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace fusehost {

/// While a mount is busy: keeps the thread that made this object, which executes the kernel's requests, and the
/// companion that answers it on one processor, if they are faster so and nobody has to wait for it. Waking a processor
/// that idles takes longer than most answers.
///
/// A thread of its own looks at it every few milliseconds; while the mount is idle it sleeps, and all masks are as they
/// were. What belongs to nobody here is never changed.
class Placement {
public:
    /// False where this thread may use one processor only, or the system does not tell what is needed. Says so in the
    /// log.
    static bool isPossible();

    /// `companion` must outlive this object.
    explicit Placement(const Companion& companion);
    /// Puts everything back.
    ~Placement();
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;

    /// For the thread that made this object.
    Pace& pace() { return pace_; }

private:
    void run();
    /// False at the end.
    bool waitForWork();
    bool waitForStep();

    LinuxTasks tasks_; // the placing thread's
    Pace pace_;
    Placer placer_;   // the placing thread's
    std::mutex lock_; // guards what follows
    std::condition_variable changed_;
    bool ending_ = false;
    bool isBusy_ = false;
    std::thread thread_;
};

} // namespace fusehost
