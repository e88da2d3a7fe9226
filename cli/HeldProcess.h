#pragma once

#include "foundation/Descriptor.h"

#include <chrono>
#include <sys/types.h>
#include <vector>

namespace cli {

/// A process held by descriptor, so that a number given to another process in the meantime is never mistaken for it.
/// Thread-safe.
class HeldProcess {
public:
    /// `gone()` from the start if there is no such process.
    explicit HeldProcess(pid_t pid);
    /// Takes over a descriptor of the process.
    HeldProcess(pid_t pid, foundation::Descriptor descriptor);

    pid_t pid() const { return pid_; }

    /// The descriptor by which the process is held, for handing to another process; -1 if there was no such process.
    int descriptor() const { return descriptor_.number(); }

    /// Waits until the process has ended, without limit. A zombie has ended.
    void waitGone() const;

    /// The same, but no longer than `limit`. True if it has ended.
    bool waitGone(std::chrono::milliseconds limit) const;

    bool gone() const { return waitGone(std::chrono::milliseconds(0)); }

    /// Sends a signal; silently nothing if the process has ended or belongs to someone else.
    void signal(int number) const;

    /// Sends a signal to the process and, where it leads a process group, to the whole of it.
    void signalGroup(int number) const;

private:
    pid_t pid_ = -1;
    foundation::Descriptor descriptor_;
};

/// Waits until all have ended, no longer than `limit` altogether. True if they have.
bool allGone(const std::vector<HeldProcess>& processes, std::chrono::milliseconds limit);

/// How long processes that are to end are waited for.
struct Patience {
    std::chrono::milliseconds alone;            // until they are sent SIGTERM
    std::chrono::milliseconds afterTermination; // from then on, until they are sent SIGKILL
};

/// Gives processes time to end by themselves, then ends them with all of their process groups. True if no signal was
/// needed. Does not wait for the killed.
bool endProcesses(const std::vector<HeldProcess>& processes, Patience patience);

} // namespace cli
