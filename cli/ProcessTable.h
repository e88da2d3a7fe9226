#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace cli {

/// A process, for a message.
struct ProcessName {
    pid_t pid = 0;
    std::string name;
};

/// A process held by descriptor, so that a number given to another process in the meantime is never mistaken for it.
class ProcessHandle {
public:
    /// `gone()` from the start if there is no such process.
    explicit ProcessHandle(pid_t pid);
    /// Takes over a descriptor of the process.
    ProcessHandle(pid_t pid, int descriptor);
    ProcessHandle(ProcessHandle&& other) noexcept;
    ProcessHandle& operator=(ProcessHandle&& other) noexcept;
    ProcessHandle(const ProcessHandle&) = delete;
    ProcessHandle& operator=(const ProcessHandle&) = delete;
    ~ProcessHandle();

    pid_t pid() const { return pid_; }

    /// The descriptor by which the process is held, for handing to another process; -1 if there was no such process.
    int descriptor() const { return descriptor_; }

    /// Waits until the process has ended, at most the given time in milliseconds (negative: without limit). True if it
    /// has ended. A zombie has ended.
    bool waitGone(int milliseconds) const;

    bool gone() const { return waitGone(0); }

    /// Sends a signal; silently nothing if the process has ended or belongs to someone else.
    void signal(int number) const;

    /// Sends a signal to the process and, where it leads a process group, to the whole of it.
    void signalGroup(int number) const;

private:
    pid_t pid_ = -1;
    int descriptor_ = -1;
};

/// Waits until all have ended, at most the given time in milliseconds altogether. True if they have.
bool allGone(const std::vector<ProcessHandle>& processes, int milliseconds);

/// Gives processes the time `alone` to end by themselves, then sends SIGTERM to their groups and, after the time
/// `afterTermination`, SIGKILL (times in milliseconds). True if no signal was needed. Does not wait for the killed.
bool endProcesses(const std::vector<ProcessHandle>& processes, int alone, int afterTermination);

/// The process numbers in /proc.
std::vector<pid_t> allProcesses();

/// The name of a process's main thread; empty if it is gone.
std::string processName(pid_t pid);

/// What a process that serves a mount has started.
struct Children {
    std::vector<pid_t> helpers;
    /// Those that stand by to clear the mount should the process die.
    std::vector<pid_t> watchers;
};

Children childrenOf(pid_t parent);

/// Those of the processes that live and are children of `parent`, held by handles. While `parent` lives, and is known
/// to be the process that is meant, no other process is taken for one of them.
std::vector<ProcessHandle> handlesOfChildren(const std::vector<pid_t>& pids, pid_t parent);

/// Up to `limit` processes other than `except` that have a file, their working directory or a mapping on the given
/// mount. Only those that this user may look into are found. Never asks the mounted file system anything.
std::vector<ProcessName> usersOfMount(const std::string& mountPoint, pid_t except, std::size_t limit);

} // namespace cli
