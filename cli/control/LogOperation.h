#pragma once

#include "cli/RecentLog.h"
#include "control/ControlServer.h"

#include <memory>

namespace cli {

/// Adds the operation "log": {"lines":[...]}, the last lines of the mount's log; with {"follow":true} what is logged
/// from then on follows as {"line":...}.
void addLogOperation(control::ControlServer& server, std::shared_ptr<RecentLog> log);

} // namespace cli
