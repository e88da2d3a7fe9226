#pragma once

#include "foundation/NSError.h"

namespace fusehost {

/// The errno value of the running kernel for an error of the volume: its own number for the POSIX domain, EIO for
/// every other domain. The one place where error values become errno values.
int kernelErrno(const foundation::NSError& error);

} // namespace fusehost
