#pragma once

#include "cli/HeldProcess.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli {

/// A process, for a message.
struct ProcessName {
    pid_t pid = 0;
    std::string name;
};

/// The process numbers in /proc.
std::vector<pid_t> allProcesses();

/// The name of a process's main thread; empty if it is gone.
std::string processName(pid_t pid);

/// The process that a thread belongs to; nothing if it is gone.
std::optional<pid_t> processOfThread(pid_t thread);

/// What a process that serves a mount has started.
struct Children {
    std::vector<pid_t> helpers;
    /// Those that stand by to clear the mount should the process die.
    std::vector<pid_t> watchers;
};

Children childrenOf(pid_t parent);

/// Those of the processes that live and are children of `parent`, held. While `parent` lives, and is known
/// to be the process that is meant, no other process is taken for one of them.
std::vector<HeldProcess> heldChildren(const std::vector<pid_t>& pids, pid_t parent);

/// Up to `limit` processes other than `except` that have a file, their working directory or a mapping on the given
/// mount. Only those that this user may look into are found. Never asks the mounted file system anything.
std::vector<ProcessName> usersOfMount(const std::string& mountPoint, pid_t except, std::size_t limit);

} // namespace cli
