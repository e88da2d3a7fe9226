#include "hosts/fuse/monitor/KernelOperation.h"

#include <array>

namespace fusehost {

std::string_view nameOf(KernelOperation operation) {
    static constexpr std::array<std::string_view, kernelOperationCount> names{
        "lookup",    "forget",      "getattr",    "setattr",  "access",  "readlink", "symlink",
        "mknod",     "mkdir",       "unlink",     "rmdir",    "rename",  "link",     "create",
        "open",      "read",        "write",      "flush",    "release", "fsync",    "opendir",
        "readdir",   "readdirplus", "releasedir", "fsyncdir", "statfs",  "setxattr", "getxattr",
        "listxattr", "removexattr", "init",       "other",    "idle"};
    return names[static_cast<std::size_t>(operation)];
}

} // namespace fusehost
