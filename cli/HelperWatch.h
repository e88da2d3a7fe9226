#pragma once

#include "cli/ProcessTable.h"
#include "foundation/ChildProcess.h"
#include "foundation/Pipe.h"

namespace cli {

/// A small process that ends a helper, with all of its process group, should the process that uses it die without doing
/// so (killed, crashed): a helper that hangs would not notice, and run for ever. One that has something to finish gets
/// a second before it is terminated, and another before it is killed. Not thread-safe.
class HelperWatch {
public:
    /// The name by which the process is known.
    static constexpr const char* processName = "kemvi-watch";

    /// Starts the process. Throws the launch error.
    explicit HelperWatch(const ProcessHandle& helper);
    /// Ends the helper in the same way if it still runs.
    ~HelperWatch();
    HelperWatch(const HelperWatch&) = delete;
    HelperWatch& operator=(const HelperWatch&) = delete;

private:
    foundation::Pipe pipe_; // its end is what the process waits for
    foundation::ChildProcess process_;
};

/// True if this process was started to watch over the helper whose process number is argv[2].
bool isCalledToWatchHelper(int argc, char** argv);

/// What such a process does, until its standard input ends. Its standard output is no stream but the helper, as a
/// descriptor of the process: its number may be another's by then. Returns its exit status.
int runHelperWatch(const char* helper);

} // namespace cli
