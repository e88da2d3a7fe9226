#pragma once

#include "cli/Supervisor.h"
#include "cli/watch/QuietTime.h"
#include "cli/watch/WatchedHelper.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <string>
#include <thread>
#include <vector>

namespace cli {

/// Has a mount's helper started anew when its script or a file that this imports has changed, and changes no more for a
/// moment. While nothing changes its thread sleeps.
class HelperWatch {
public:
    /// To be made before the helper is started: what changes from here on counts. The files as WatchedHelper takes
    /// them. Throws WatchError.
    HelperWatch(std::vector<std::string> roots, std::string excluded);
    ~HelperWatch();
    HelperWatch(const HelperWatch&) = delete;
    HelperWatch& operator=(const HelperWatch&) = delete;

    /// From here on the supervisor, which must outlive the watch or its end, is asked to start the helper anew. Throws
    /// std::system_error if the process can have no more threads.
    void begin(Supervisor& supervisor);

    /// Asks for no more. Nothing if it has not begun.
    void end() noexcept;

    /// The files that are watched, the helper's script first. Any thread.
    std::vector<std::string> paths() const { return helper_.paths(); }

private:
    void run(Supervisor& supervisor);
    void wait(Supervisor& supervisor);
    void tell(const WatchedHelper::News& news) const;

    WatchedHelper helper_;
    QuietTime quiet_;
    fusehost::EventDescriptor end_;
    bool isEnding_ = false; // the thread's own
    std::thread thread_;
};

} // namespace cli
