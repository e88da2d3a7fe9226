#pragma once

#include "control/ControlServer.h"
#include "hosts/fuse/FuseHost.h"

namespace cli {

/// Adds the operation "invalidate": {"paths":["/a", ...]} or {"all":true}. It is answered, with {"forgotten":N}, when
/// the kernel has forgotten what it knew of them, which takes as long as the operation in hand. The host must live
/// until the server has stopped.
void addInvalidateOperation(control::ControlServer& server, fusehost::FuseHost& host);

} // namespace cli
