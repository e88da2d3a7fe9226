#include "hosts/fuse/kernel/FuseLibrary.h"

#include "hosts/fuse/kernel/LibFuse.h"

namespace fusehost {

std::string fuseLibraryVersion() {
    return fuse_pkgversion();
}

void printKernelProtocol() {
    fuse_lowlevel_version();
}

} // namespace fusehost
