#pragma once

#include "control/ControlServer.h"

#include <functional>
#include <optional>
#include <string>

namespace cli {

/// Adds the operation "unmount": takes the mount away as `umount` does, by the process that serves it, and answers when
/// it is gone. Refused with the code "busy" while programs use it, "notMounted" where there is nothing to take away.
/// `device` is asked on the channel's thread: the number of the mount while it is served.
void addUnmountOperation(control::ControlServer& server, const std::string& mountPoint,
                         std::function<std::optional<unsigned>()> device);

} // namespace cli
