#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"
#include "hosts/fuse/tree/FileTree.h"

#include <algorithm>

namespace fusehost {

using fskit::FSVolumeOpenModes;

// The volume asks the helper to make the files safe that it holds write handles of at that moment: all of them, up to
// the first failure, of which it does not say whose it is. Of what was written through handles given back before it
// knows nothing. So the host keeps account of each file and sees to it that the volume holds the handle of the file
// that is meant, and no other.

void FileTree::synchronize(OpenFileID id) {
    Node& node = nodeAt(fileAt(id).node);
    if (const int error = std::exchange(node.deferredError, 0))
        throw KernelError(error);
    makeSafe(node);
}

void FileTree::makeSafe(Node& node) {
    closeOtherWriters(node);
    if (node.safety == Safety::due || (node.safety == Safety::unknown && nodes_.hasForgottenDue()))
        openToSynchronize(node);
    try {
        volume_.synchronize();
    } catch (const KernelError& error) {
        for (Node* other : otherWriters(node)) // it may be theirs, and it may have kept the helper from being asked
            deferError(*other, error);
        closeQuietly(node);
        throw;
    }
    node.safety = Safety::told;
    if (node.unflushedWriters == 0)
        closeUnused(node);
}

void FileTree::openToSynchronize(Node& node) {
    // Opened for writing, a file that was removed behind the mount would be made anew.
    if (!node.mayHaveWriteHandle)
        askForAttributes(node);
    node.mayHaveWriteHandle = true;
    volume_.open(itemOf(node), FSVolumeOpenModes::write);
}

std::vector<Node*> FileTree::otherWriters(const Node& node) {
    std::vector<Node*> others;
    for (const auto& [id, file] : files_) {
        if (!file.writes || file.node == node.id)
            continue;
        Node* other = nodes_.find(file.node);
        if (other != nullptr && other->mayHaveWriteHandle && other->item)
            others.push_back(other);
    }
    return others;
}

// They open again when next written. One that could not stays, at the price of being flushed with this one.
void FileTree::closeOtherWriters(const Node& node) {
    for (Node* other : otherWriters(node)) {
        if (other->isWriteProtected)
            continue;
        other->mayHaveWriteHandle = false;
        try {
            volume_.close(other->item, FSVolumeOpenModes::read);
        } catch (const KernelError& error) {
            error.tell(); // the program that is told later gets the number alone
            deferError(*other, error);
        }
    }
}

void FileTree::deferError(Node& node, const KernelError& error) {
    if (node.deferredError == 0)
        node.deferredError = error.number();
}

} // namespace fusehost
