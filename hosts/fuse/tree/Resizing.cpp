#include "hosts/fuse/tree/Resizing.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <limits>

namespace fusehost {

using fskit::FSItemAttributes;

Resizing::Resizing(Nodes& nodes, VolumeHandles& handles, Attributes& attributes, Contents& contents,
                   Shrinking& shrinking)
    : nodes_(nodes), handles_(handles), attributes_(attributes), contents_(contents), shrinking_(shrinking) {}

struct stat Resizing::changeSize(Node& node, std::uint64_t size) {
    if (node.isDirectory())
        throw KernelError(EISDIR);
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        throw KernelError(EFBIG);
    contents_.noteChange(node);
    try {
        const FSItemAttributes attributes = size == 0 ? contents_.makeEmpty(node) : resize(node, size);
        handles_.closeUnused(node);
        return attributes_.show(node, attributes);
    } catch (const KernelError&) {
        handles_.closeQuietly(node);
        throw;
    }
}

FSItemAttributes Resizing::resize(Node& node, std::uint64_t size) {
    // A fresh look: what is kept must be judged by the file as it is now, which may have grown behind the mount. And
    // fresh handles: one that others hold may belong to a file that was replaced there.
    handles_.closeForMove(node);
    const FoundItem found = nodes_.lookUpAgain(node);
    if (!found.item->isSizeKnown())
        throw KernelError(EOPNOTSUPP); // what is to be kept of it cannot be told
    node.size = found.attributes.size();
    if (size == node.size)
        return found.attributes;
    if (size < node.size)
        shrinking_.shrink(node, size);
    else
        contents_.grow(node, size);
    return nodes_.attributesOf(node);
}

} // namespace fusehost
