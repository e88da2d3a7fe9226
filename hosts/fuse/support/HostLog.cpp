#include "hosts/fuse/support/HostLog.h"

namespace fusehost {

const foundation::Logger& hostLog() {
    static const foundation::Logger logger("com.kemvi.fs.fuse", "Mount");
    return logger;
}

} // namespace fusehost
