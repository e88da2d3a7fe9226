#pragma once

#include "foundation/ChildProcess.h"
#include "foundation/Pipe.h"

#include <string>

namespace cli {

/// A small process that takes a mount away should the process that serves it die without doing so (killed, crashed), so
/// that no stale mount stays behind. It ends when this object, or the process that holds it, does. Not thread-safe.
///
/// fusermount3 offers the same (auto_unmount), but it decides by asking the mount, and a mount whose process is just
/// dying answers it now one way, now another; and it would take a new mount on the same directory for the old one.
class MountWatch {
public:
    /// The name by which the process is known.
    static constexpr const char* processName = "kemvi-watch";

    /// Starts the process. Throws the launch error.
    explicit MountWatch(const std::string& mountPoint);
    /// Ends the process and waits for that.
    ~MountWatch();
    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;

    /// From here on the mount with this device number is watched over.
    void begin(unsigned deviceMinor);

    /// The mount is gone: from here on there is nothing to watch over, whatever is mounted there next.
    void release();

private:
    foundation::Pipe pipe_;
    foundation::ChildProcess process_;
};

/// True if this process was started to watch over the mount at argv[2].
bool isCalledToWatch(int argc, char** argv);

/// What such a process does, until its standard input ends. Returns its exit status.
int runMountWatch(const std::string& mountPoint);

} // namespace cli
