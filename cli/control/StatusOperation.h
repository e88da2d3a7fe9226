#pragma once

#include "cli/HelperProcesses.h"
#include "cli/MountSession.h"
#include "cli/StopControl.h"
#include "cli/Supervisor.h"
#include "cli/watch/HelperWatch.h"
#include "control/ControlServer.h"
#include "hosts/fuse/FuseHost.h"

namespace cli {

/// What the status of a mount is told from; all must outlive the server.
struct StatusSources {
    const MountPlan& plan;
    const HelperProcesses& helpers;
    const Supervisor& supervisor;
    const StopControl& stop;
    fusehost::FuseHost& host;
    const HelperWatch* watch; // null: the helper's files are not watched
};

/// What "status" answers as far as it changes while the mount lives. Any thread; waits for nothing.
control::Members changingStatus(const StatusSources& sources);

/// Adds the operation "status": what the mount is, and what it is at. It waits for nothing, so it also answers while
/// the helper hangs.
void addStatusOperation(control::ControlServer& server, const StatusSources& sources);

} // namespace cli
