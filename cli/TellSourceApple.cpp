#include "cli/MountSource.h"

#include <cstdlib>

namespace cli {

// Mounts here have no control channel, and only what node itself offers becomes another program.
void tellSourceToHelpers(const MountSource& source) {
    tellToHelpers(source.settings);
    ::setenv("KEMVI_SOURCE", source.path.c_str(), 1);
}

} // namespace cli
