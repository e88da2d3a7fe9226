#pragma once

#include "foundation/Log.h"

namespace fusehost {

/// The logger of the FUSE host.
const foundation::Logger& hostLog();

} // namespace fusehost
