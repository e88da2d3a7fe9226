#pragma once

#include "cli/ExitCode.h"
#include "cli/ReportingErrors.h"

#include <functional>

namespace cli {

/// What the serving process reports to the command that the user typed.
struct Progress {
    /// It is mounted, and about to be served. To be called in the process's first thread.
    std::function<void()> mounted = [] {};
    /// It is served: the command returns. Any thread. May be empty where nobody waits for it.
    std::function<void()> ready;
};

/// When the serving process leaves the session of the command, and with it the group of processes.
enum class OwnSession {
    fromTheStart,
    onceReady, // for a mount point that is an automount: it lets only its manager's group through until then
};

/// Runs `serve` in a process of its own that outlives the command. Returns in the calling process only: success as soon
/// as `serve` has reported "ready", or what `serve` ended with when it ended before that; its error is on
/// the terminal then. Before the call SIGINT, SIGTERM and SIGHUP must be blocked: they are passed on to the serving
/// process until it is ready. Call it before the process has started any thread. Throws CommandError.
ExitCode runInBackground(const std::function<ExitCode(const Progress&)>& serve, OwnSession session);

} // namespace cli
