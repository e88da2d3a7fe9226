#pragma once

#include "foundation/ExitStatus.h"

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace foundation {

/// One child process. It knows nothing of what is spoken over the descriptors that the child is given.
///
/// Destroying it neither ends nor signals the child; the exit status of a child that is still running then is collected
/// when a later child is launched.
class ChildProcess {
public:
    struct Options {
        std::string executable;                         // absolute path, or a name to be found along our PATH
        std::vector<std::string> arguments;             // without the program's own name
        std::map<std::string, std::string> environment; // the whole environment of the child
        int standardInput = 0; // descriptors of this process that the child gets as its 0 and 1
        int standardOutput = 1;
        int standardError = 2; // likewise
    };

    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Starts the program: working directory inherited, a process group of its own (a terminal's interrupt does not
    /// reach it), no descriptor but the three, no signal blocked, the usual signals at their defaults.
    /// Throws NSErrorException: NSCocoaErrorDomain 4 if the executable does not exist, otherwise the POSIX error. To be
    /// called once.
    void launch(const Options& options);

    /// Blocks until the child has exited; returns at once if it has already, or was never launched. Any thread, any
    /// number of times.
    void waitUntilExit();

    /// True from a successful launch until the child has exited. Any thread; does not block.
    bool isRunning();

    /// How the child ended; nothing before that, while another thread waits for it, and if somebody else has collected
    /// it. Any thread; does not block.
    std::optional<ExitStatus> exitStatus();

    /// The child's process id, 0 before launch. The number stays the child's own until one of the functions above has
    /// seen it exited. Any thread.
    pid_t processIdentifier() const { return pid_; }

private:
    void noteExit(pid_t ended, int status);

    std::atomic<pid_t> pid_{0};
    std::mutex waitLock_; // held by the one thread that waits for the child; guards what follows
    bool exited_ = false;
    std::optional<ExitStatus> status_;
};

} // namespace foundation
