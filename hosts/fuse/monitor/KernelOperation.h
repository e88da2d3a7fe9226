#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fusehost {

/// What the kernel may ask for, as far as it is told apart when it is counted.
enum class KernelOperation : std::uint8_t {
    lookup,
    forget,
    getattr,
    setattr,
    access,
    readlink,
    symlink,
    mknod,
    mkdir,
    unlink,
    rmdir,
    rename,
    link,
    create,
    open,
    read,
    write,
    flush,
    release,
    fsync,
    opendir,
    readdir,
    readdirplus,
    releasedir,
    fsyncdir,
    statfs,
    setxattr,
    getxattr,
    listxattr,
    removexattr,
    init,
    other, // what is answered without being looked at
    idle,  // no request: what the host does of its own accord while there is none
};

inline constexpr std::size_t kernelOperationCount = static_cast<std::size_t>(KernelOperation::idle) + 1;

/// "lookup", "readdirplus", ...
std::string_view nameOf(KernelOperation operation);

} // namespace fusehost
