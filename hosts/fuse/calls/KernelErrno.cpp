#include "hosts/fuse/calls/KernelErrno.h"

#include "foundation/PosixErrno.h"

#include <cerrno>
#include <cstdint>
#include <limits>

namespace fusehost {

int kernelErrno(const foundation::NSError& error) {
    if (!error.isPosix() || error.code <= 0 || error.code > std::numeric_limits<std::int32_t>::max())
        return EIO;
    return foundation::platformErrno(static_cast<std::int32_t>(error.code));
}

} // namespace fusehost
