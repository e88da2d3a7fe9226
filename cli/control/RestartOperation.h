#pragma once

#include "cli/Supervisor.h"
#include "control/ControlServer.h"

namespace cli {

/// Adds the operation "restart": starts the helper anew behind the mount, and answers when it serves, with its process
/// number. With "keepCaches" the kernel keeps what it has cached. Refused with the code "failed" if there is no helper
/// after that, and "ending" where the mount ends first. Both must outlive the server's thread.
void addRestartOperation(control::ControlServer& server, Supervisor& supervisor, const HelperProcesses& helpers);

} // namespace cli
