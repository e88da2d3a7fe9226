#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/HostLog.h"
#include "hosts/fuse/tree/FileTree.h"

#include <cerrno>
#include <cstring>
#include <vector>

namespace fusehost {

// A file that is removed or replaced while open must live on until its last close, but the volume knows files by path
// alone. So it is given a name of ours, which is never listed nor looked up, and removed when nobody has it open. The
// names say what they are, for whoever finds one after a crash.

bool FileTree::isHidden(const Node& directory, const std::string& name) {
    if (!name.starts_with(hiddenPrefix_))
        return false;
    const Node* node = nodes_.child(directory, name);
    return node != nullptr && node->hidden;
}

std::string FileTree::hiddenName() {
    return hiddenPrefix_ + std::to_string(nextHidden_++);
}

void FileTree::moveTo(Node& node, Node& directory, const std::string& name) {
    closeForMove(node);
    Node& from = *node.parent;
    volume_.rename(itemOf(node), itemOf(from), node.name, itemOf(directory), name);
    noteChange(from);
    noteChange(directory);
    noteChange(node);
    nodes_.move(node, directory, name);
}

void FileTree::hide(Node& node) {
    const std::string name = hiddenName();
    try {
        moveTo(node, *node.parent, name);
    } catch (const KernelError& error) {
        if (error.isFault() || !node.hasName() || !isTaken(*node.parent, name))
            throw;
        // Nobody else makes such a name: the helper has done it, and failed afterwards.
        noteChange(*node.parent);
        noteChange(node);
        nodes_.move(node, *node.parent, name);
    }
    node.hidden = true;
}

bool FileTree::isTaken(Node& directory, const std::string& name) {
    try {
        volume_.lookup(itemOf(directory), name);
        return true;
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            return false;
        throw;
    }
}

void FileTree::showAgain(Node& node, const std::string& name) {
    const std::string hiddenAs = node.name;
    try {
        // A rename that failed may have been done all the same; what has the name then must not be replaced.
        if (isTaken(*node.parent, name))
            throw KernelError(EEXIST);
        moveTo(node, *node.parent, name);
    } catch (const KernelError& error) {
        hostLog().error({"a file that was to be replaced, and was not, is now called ", foundation::logPublic(hiddenAs),
                         ": ", foundation::logPublic(error.what())});
    }
    node.hidden = false; // whatever came of it: nobody removed this file, so its last close must not
}

void FileTree::moveHiddenOut(Node& directory) {
    if (directory.parent == nullptr)
        return;
    std::vector<Node*> hidden;
    for (Node* child = directory.firstChild; child != nullptr; child = child->nextSibling)
        if (child->hidden)
            hidden.push_back(child);
    for (Node* node : hidden)
        moveTo(*node, *directory.parent, hiddenName());
}

void FileTree::removeHidden(Node& node) {
    try {
        // Without a name it is gone already: somebody removed it behind the mount.
        if (node.hasName())
            volume_.remove(itemOf(node), itemOf(*node.parent), node.name);
    } catch (const KernelError& error) {
        if (error.number() != ENOENT && error.number() != ESTALE)
            hostLog().error({"a removed file stays in the served tree as ", foundation::logPublic(node.name), ": ",
                             foundation::logPublic(error.what())});
    }
    node.hidden = false;
    if (Node* directory = node.parent) {
        noteChange(*directory);
        nodes_.detach(node);
        nodes_.deleteIfUnused(*directory); // it may have been kept for this file alone
    }
    nodes_.deleteIfUnused(node);
}

// Whoever has these files open finds the mount gone, and nobody else will ask.
void FileTree::tellUntoldErrors() {
    for (auto& [id, file] : files_) {
        Node* node = nodes_.find(file.node);
        if (node == nullptr || node->hidden || node->deferredError == 0)
            continue;
        hostLog().error({"not all that was written to ", foundation::logPrivate(node->name),
                         " has reached the helper: ", foundation::logPublic(std::strerror(node->deferredError))});
        node->deferredError = 0; // once per file, however often it is open
    }
}

void FileTree::end() noexcept {
    closeUnusedReaders();
    for (auto& [id, file] : files_)
        readAhead_.drop(file.node);
    quietly("telling what was lost", [&] { tellUntoldErrors(); });
    for (auto& [id, file] : files_)
        if (Node* node = nodes_.find(file.node); node != nullptr && node->hidden)
            quietly("removing a file that was kept since it was open", [&] { removeHidden(*node); });
    files_.clear();
    directories_.clear();
}

} // namespace fusehost
