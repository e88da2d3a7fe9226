#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli {

/// The helper processes that this process started. Thread-safe.
class HelperProcesses {
public:
    HelperProcesses() = default;
    /// Ends every helper there still is, after their input was closed: a moment to go by themselves, SIGTERM, SIGKILL.
    /// Leaves no process and no zombie. Takes at most about a second and a half.
    ~HelperProcesses();
    HelperProcesses(const HelperProcesses&) = delete;
    HelperProcesses& operator=(const HelperProcesses&) = delete;

    /// Takes note of the helpers that run now. Children started later (the mount program's own) are none.
    void remember();

    /// The helpers noted, or before that every child there is.
    std::vector<pid_t> pids() const;

    /// Kills them, each with its whole process group. Does not wait.
    void kill() const;

    /// How the helper ended, "exited with status 1" or "was killed by signal 9 (Killed)", if one has ended and was not
    /// yet waited for.
    std::optional<std::string> howEnded() const;

    /// The helper's exit status, if it has exited; a helper that is about to is given a moment. Nothing if a signal
    /// ended it.
    std::optional<int> exitStatus() const;

    /// The state of the helper after its output has ended, as a clause: how it ended, for which it is given a moment,
    /// or that it still runs. Empty if nothing is known of it.
    std::string afterEndOfOutput() const;

private:
    mutable std::mutex mutex_;
    std::optional<std::vector<pid_t>> remembered_;
};

} // namespace cli
