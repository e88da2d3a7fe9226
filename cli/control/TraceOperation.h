#pragma once

#include "cli/trace/TraceFeed.h"
#include "control/ControlServer.h"

namespace cli {

/// Adds the operation "trace": from then on a line for each request of the kernel, as traceMembers has it, until the
/// peer goes. Members "operations", "path", "caller", "error" and "slowerThan" (milliseconds) say which (TraceFilter).
/// The feed must outlive the server.
void addTraceOperation(control::ControlServer& server, TraceFeed& feed);

} // namespace cli
