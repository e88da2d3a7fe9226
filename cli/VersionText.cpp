#include "cli/VersionText.h"

#include "foundation/JSONLibrary.h"
#include "hosts/fuse/kernel/FuseLibrary.h"

#include <iostream>

namespace cli {

void printVersion() {
    std::cout << "kemvi " KEMVI_VERSION "\n"
              << "libfuse " << fusehost::fuseLibraryVersion() << "\n"
              << "simdjson " << foundation::jsonLibraryVersion() << "\n"
              << std::flush;
    fusehost::printKernelProtocol();
}

} // namespace cli
