#include "hosts/fuse/tree/Opening.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <fcntl.h>

namespace fusehost {

using fskit::FSVolumeOpenModes;

Opening::Opening(Nodes& nodes, VolumeHandles& handles, Resizing& resizing, OpenFiles& files)
    : nodes_(nodes), handles_(handles), resizing_(resizing), files_(files) {}

OpenFileID Opening::open(Node& node, int flags) {
    if (node.isDirectory())
        throw KernelError(EISDIR);
    // The handle of an earlier opener must not be taken for one of the file that has the name now.
    if (handles_.isPending()) {
        nodes_.itemOf(node);
        if (handles_.isUnused(node))
            handles_.closeAllUnused();
    }
    // A handle that others hold may belong to a file that was replaced behind the mount: every opener gets the file
    // that now has the name.
    if (node.isOpen())
        handles_.closeForMove(node);
    if ((flags & O_TRUNC) != 0)
        resizing_.changeSize(node, 0);
    const bool isOfUnknownSize = (flags & O_TRUNC) == 0 && hasUnknownSize(node);
    // The kernel would append at the size that it was told.
    if (isOfUnknownSize && (flags & O_APPEND) != 0)
        throw KernelError(EOPNOTSUPP);
    const FSVolumeOpenModes modes = files_.modesFor(flags);
    try {
        openInVolume(node, modes);
    } catch (const KernelError& error) {
        if (error.number() != ENOENT)
            throw;
        // Replaced meanwhile, or gone: then ESTALE has the kernel look the name up itself. If the name is there and
        // still nothing can be opened, that is the answer.
        handles_.closeForMove(node);
        nodes_.lookUpAgain(node);
        openInVolume(node, modes);
    }
    const OpenFileID opened = files_.add(node, flags);
    files_.at(opened).isOfUnknownSize = isOfUnknownSize;
    return opened;
}

// Its records show an empty file.
bool Opening::hasUnknownSize(Node& node) {
    return node.size == 0 && node.hasName() && !nodes_.toldItemOf(node)->isSizeKnown();
}

void Opening::openInVolume(Node& node, FSVolumeOpenModes modes) {
    nodes_.itemOf(node);
    try {
        handles_.open(node, modes);
    } catch (const KernelError&) {
        handles_.closeQuietly(node);
        throw;
    }
}

} // namespace fusehost
