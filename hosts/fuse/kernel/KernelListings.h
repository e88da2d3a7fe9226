#pragma once

#include "hosts/fuse/kernel/LibFuse.h"

#include <cstddef>
#include <sys/types.h>

namespace fusehost {

/// READDIR: names, types and inode numbers of an open directory from `offset` on, as many as fit in `size` bytes.
void readDirectory(fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset, fuse_file_info* file);

/// READDIRPLUS: the same, each with its node and attributes where the listing still tells the truth about it. Nodes of
/// a reply that the kernel no longer wanted are taken back.
void readDirectoryPlus(fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset, fuse_file_info* file);

} // namespace fusehost
