#pragma once

#include "cli/MountSession.h"
#include "control/ControlServer.h"

#include <functional>
#include <memory>
#include <string>

namespace cli {

/// The control channel of a mount while it lives. A mount that can have none is a mount all the same; one line of the
/// log says why.
///
/// The operations are added by functions, each in a file of its own in cli/control/.
class MountControl {
public:
    /// Makes the socket and puts its path into this process's own environment, for the helpers. Nobody is answered
    /// before `serve`. To be called in the process's first thread.
    explicit MountControl(const MountPlan& plan);

    /// Empty if the mount has no channel.
    std::string path() const;

    /// Calls `addOperations`, if there is a channel, and answers from then on.
    void serve(const std::function<void(control::ControlServer&)>& addOperations);

    /// No operation runs after this has returned.
    void stop() noexcept;

private:
    std::unique_ptr<control::ControlServer> server_;
};

} // namespace cli
