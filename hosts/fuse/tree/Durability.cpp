#include "hosts/fuse/tree/Durability.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <utility>

namespace fusehost {

Durability::Durability(Nodes& nodes, VolumeHandles& handles, Attributes& attributes)
    : nodes_(nodes), handles_(handles), attributes_(attributes) {}

void Durability::synchronize(Node& node) {
    if (const int error = node.deferredError.take())
        throw KernelError(error);
    if (std::exchange(node.isUnconfirmed, false))
        throw KernelError(EIO);
    makeSafe(node);
}

void Durability::makeSafe(Node& node) {
    handles_.closeOtherWriters(node);
    if (node.safety == Safety::due || (node.safety == Safety::unknown && nodes_.hasForgottenDue()))
        openToSynchronize(node);
    try {
        handles_.synchronize();
    } catch (const KernelError& error) {
        for (Node* other : handles_.otherWriters(node)) // it may be theirs, and have kept the helper from being asked
            other->deferredError.keep(error.number());
        handles_.closeQuietly(node);
        throw;
    }
    node.safety = Safety::told;
    if (node.unflushedWriters == 0)
        handles_.closeUnused(node);
}

void Durability::openToSynchronize(Node& node) {
    // Opened for writing, a file that was removed behind the mount would be made anew.
    if (!handles_.mayBeWritten(node))
        attributes_.ask(node);
    nodes_.itemOf(node);
    handles_.open(node, fskit::FSVolumeOpenModes::write);
}

} // namespace fusehost
