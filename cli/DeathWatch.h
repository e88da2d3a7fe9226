#pragma once

#include "cli/HeldProcess.h"
#include "foundation/ChildProcess.h"
#include "foundation/Descriptor.h"

#include <atomic>
#include <string>
#include <string_view>

namespace cli {

/// A small process that clears up should the process that started it die without doing so (killed, crashed): it takes
/// the mount away, if there is one, so that no stale mount stays behind, and ends helpers that do not end by themselves
/// when their input has ended: one that hangs would run for ever. It ends when that is done, or when this object goes.
/// Not thread-safe.
///
/// fusermount3 offers the first (auto_unmount), but it decides by asking the mount, and a mount whose process is just
/// dying answers it now one way, now another; and it would take a new mount on the same directory for the old one.
class DeathWatch {
public:
    /// The name by which the process is known.
    static constexpr const char* processName = "kemvi-watch";
    /// The argument with which it is started; that of any version begins so.
    static constexpr std::string_view argument = "--watch";

    /// Starts the process, for helpers alone. `patience` is what they get to finish. Throws the launch error.
    explicit DeathWatch(Patience patience);
    /// The same for a mount at this path and its helpers.
    DeathWatch(Patience patience, const std::string& mountPoint);
    /// Ends the process, which first ends the helpers that still run, and waits for that.
    ~DeathWatch();
    DeathWatch(const DeathWatch&) = delete;
    DeathWatch& operator=(const DeathWatch&) = delete;

    /// From here on this process, too, is a helper to be ended. It is handed over by descriptor, so that no other
    /// process is ever taken for it.
    void guard(const HeldProcess& helper);

    /// A helper is about to be placed on that processor alone, which is to be undone should this process die. Any
    /// thread.
    void placing(int processor);

    /// From here on the mount with this device number is watched over.
    void begin(unsigned deviceMinor);

    /// The mount is gone: from here on there is none to watch over, whatever is mounted there next.
    void release();

private:
    void send(const std::string& text) const;
    void send(const std::string& text, int descriptor) const;

    std::atomic<int> lastPlaced_{-1};
    foundation::Descriptor channel_;
    foundation::ChildProcess process_;
};

/// True if this process was started to watch.
bool isCalledToWatch(int argc, char** argv);

/// What such a process does with the same arguments, until its standard input ends. Returns its exit status.
int runDeathWatch(char** argv);

} // namespace cli
