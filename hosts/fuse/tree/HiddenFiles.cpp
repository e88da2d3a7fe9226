#include "hosts/fuse/tree/HiddenFiles.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"

#include <cerrno>
#include <utility>
#include <vector>

namespace fusehost {

HiddenFiles::HiddenFiles(Nodes& nodes, VolumeHandles& handles, Freshness& freshness, HiddenNames& names)
    : nodes_(nodes), handles_(handles), freshness_(freshness), names_(names) {}

bool HiddenFiles::isHidden(const Node& directory, const std::string& name) const {
    if (!names_.isLikeOurs(name))
        return false;
    const Node* node = nodes_.child(directory, name);
    return node != nullptr && node->hidden;
}

void HiddenFiles::refuseHidden(const Node& directory, const std::string& name) const {
    if (isHidden(directory, name))
        throw KernelError(ENOENT);
}

void HiddenFiles::setHidden(Node& node) {
    count_ += node.hidden ? 0 : 1;
    node.hidden = true;
}

void HiddenFiles::setPlain(Node& node) {
    count_ -= node.hidden ? 1 : 0;
    node.hidden = false;
}

void HiddenFiles::moveTo(Node& node, Node& directory, const std::string& name) {
    handles_.closeForMove(node);
    Node& from = *node.parent;
    handles_.rename(nodes_.itemOf(node), nodes_.itemOf(from), node.name, nodes_.itemOf(directory), name);
    freshness_.noteChange(from);
    freshness_.noteChange(directory);
    freshness_.noteChange(node);
    nodes_.move(node, directory, name);
}

void HiddenFiles::hide(const NameChange&, Node& node) {
    const std::string name = names_.next();
    try {
        moveTo(node, *node.parent, name);
    } catch (const KernelError& error) {
        if (error.isFault() || !node.hasName() || !nodes_.isTaken(*node.parent, name))
            throw;
        // Nobody else makes such a name: the helper has done it, and failed afterwards.
        freshness_.noteChange(*node.parent);
        freshness_.noteChange(node);
        nodes_.move(node, *node.parent, name);
    }
    setHidden(node);
}

void HiddenFiles::showAgain(const NameChange&, Node& node, const std::string& name) {
    const std::string hiddenAs = node.name;
    try {
        // A rename that failed may have been done all the same; what has the name then must not be replaced.
        if (nodes_.isTaken(*node.parent, name))
            throw KernelError(EEXIST);
        moveTo(node, *node.parent, name);
    } catch (const KernelError& error) {
        hostLog().error({"a file that was to be replaced, and was not, is now called ", foundation::logPublic(hiddenAs),
                         ": ", foundation::logPublic(error.what())});
    }
    setPlain(node); // whatever came of it: nobody removed this file, so its last close must not
}

void HiddenFiles::moveOut(const NameChange&, Node& directory) {
    if (directory.parent == nullptr)
        return;
    std::vector<Node*> hidden;
    for (Node* child = directory.firstChild; child != nullptr; child = child->nextSibling)
        if (child->hidden)
            hidden.push_back(child);
    for (Node* node : hidden)
        moveTo(*node, *directory.parent, names_.next());
}

void HiddenFiles::remove(Node& node) {
    try {
        // Without a name it is gone already: somebody removed it behind the mount.
        if (node.hasName())
            handles_.remove(nodes_.itemOf(node), nodes_.itemOf(*node.parent), node.name);
    } catch (const KernelError& error) {
        if (handles_.hasEnded()) {
            unused_.push_back(node.id);
            return;
        }
        if (error.number() != ENOENT && error.number() != ESTALE)
            hostLog().error({"a removed file stays in the served tree as ", foundation::logPublic(node.name), ": ",
                             foundation::logPublic(error.what())});
    }
    setPlain(node);
    Node* const directory = node.parent;
    if (directory != nullptr)
        freshness_.noteChange(*directory);
    nodes_.drop(node);
    if (directory != nullptr)
        nodes_.dropIfUnused(*directory); // it may have been kept for this file alone
}

void HiddenFiles::removeUnused() {
    for (const NodeID id : std::exchange(unused_, {}))
        if (Node* node = nodes_.find(id))
            remove(*node);
}

} // namespace fusehost
