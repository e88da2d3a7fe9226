#pragma once

#include "cli/ExchangeMeter.h"
#include "cli/HelperProcesses.h"
#include "cli/MountSession.h"
#include "cli/Supervisor.h"
#include "control/ControlServer.h"
#include "hosts/fuse/monitor/Monitor.h"

#include <atomic>
#include <cstdint>

namespace cli {

/// What the figures of a mount are told from; all must outlive the server.
struct StatsSources {
    const MountPlan& plan;
    const HelperProcesses& helpers;
    const Supervisor& supervisor;
    const fusehost::Monitor& monitor;
    const ExchangeMeter& exchanges;
};

/// Adds the operation "stats": everything that was counted since the mount was made, and its gauges. It waits for
/// nothing, so it also answers while the helper hangs. MountFigures reads the answer.
void addStatsOperation(control::ControlServer& server, const StatsSources& sources);

} // namespace cli
