#pragma once

#include "cli/ProcessTable.h"
#include "foundation/ChildProcess.h"

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// A small process that clears up should the process that serves a mount die without doing so (killed, crashed): it
/// takes the mount away, so that no stale mount stays behind, and ends a helper that does not end by itself. It ends
/// when that is done, or when this object goes. Not thread-safe.
///
/// fusermount3 offers the first (auto_unmount), but it decides by asking the mount, and a mount whose process is just
/// dying answers it now one way, now another; and it would take a new mount on the same directory for the old one.
class MountWatch {
public:
    /// The name by which the process is known.
    static constexpr const char* processName = "kemvi-watch";
    /// The argument with which it is started.
    static constexpr const char* argument = "--watch-mount";

    /// Starts the process. Until it is told of a helper, every child that this process has is taken for one. Throws the
    /// launch error.
    explicit MountWatch(const std::string& mountPoint);
    /// Ends the process and waits for that.
    ~MountWatch();
    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;

    /// From here on these processes, and no others, are the helpers to be ended. They are handed over by descriptor, so
    /// that no other process is ever taken for one.
    void guard(const std::vector<ProcessHandle>& helpers);

    /// From here on the mount with this device number is watched over.
    void begin(unsigned deviceMinor);

    /// The mount is gone: from here on there is none to watch over, whatever is mounted there next.
    void release();

private:
    void send(std::string_view text, int descriptor = -1) const;

    int channel_ = -1;
    foundation::ChildProcess process_;
};

/// True if this process was started to watch over the mount at argv[2].
bool isCalledToWatch(int argc, char** argv);

/// What such a process does, until its standard input ends. Returns its exit status.
int runMountWatch(const std::string& mountPoint);

} // namespace cli
