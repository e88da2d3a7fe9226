#include "hosts/fuse/kernel/KernelContext.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/LibFuse.h"

#include <algorithm>

namespace fusehost {

std::span<std::byte> KernelContext::bufferFor(std::size_t size) {
    if (buffer.size() < size)
        buffer.resize(size);
    return std::span(buffer).first(size);
}

KernelContext& contextOf(fuse_req_t request) {
    return *static_cast<KernelContext*>(fuse_req_userdata(request));
}

fuse_entry_param entryParam(const KernelContext& context, const TreeEntry& entry) {
    fuse_entry_param param{};
    param.ino = entry.node;
    param.attr = entry.attributes;
    const Seconds age = entry.age;
    param.attr_timeout = std::max(Seconds(0), context.options.attrTimeout - age).count();
    param.entry_timeout = std::max(Seconds(0), context.options.entryTimeout - age).count();
    return param;
}

OpenDirectoryID directoryOf(const fuse_file_info& directory) {
    return OpenDirectoryID{directory.fh};
}

void forgetQuietly(FileTree& tree, NodeID node, std::uint64_t lookups) noexcept {
    quietly("forgetting a node", [&] { tree.forget(node, lookups); });
}

} // namespace fusehost
