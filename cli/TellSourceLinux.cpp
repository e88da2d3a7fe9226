#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "control/ControlServer.h"

#include <cstdlib>

namespace cli {

void tellSourceToHelpers(const MountSource& source) {
    tellToHelpers(source.settings);
    ::setenv("KEMVI_SOURCE", source.path.c_str(), 1);
    if (const auto become = shippedProgram("kemvi-become.node"))
        ::setenv("KEMVI_BECOME", become->c_str(), 1);
    ::setenv(control::environmentName, "", 1);
}

} // namespace cli
