#include "hosts/fuse/tree/Removal.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

Removal::Removal(Changes& changes, Nodes& nodes, HiddenFiles& hidden, Listings& listings)
    : changes_(changes), nodes_(nodes), hidden_(hidden), listings_(listings) {}

Nodes::Resolved Removal::resolve(Node& directory, const std::string& name) {
    nodes_.checkName(name);
    hidden_.refuseHidden(directory, name);
    return nodes_.resolve(directory, name);
}

void Removal::remove(const Nodes::Resolved& target, Node& directory, const std::string& name) {
    changes_.handles.remove(target.item, nodes_.itemOf(directory), name);
    if (target.node != nullptr)
        nodes_.drop(*target.node);
}

void Removal::removeFile(Node& directory, const std::string& name) {
    const NameChange change(changes_, directory);
    const Nodes::Resolved target = resolve(directory, name);
    if (target.isDirectory)
        throw KernelError(EISDIR);
    if (target.node != nullptr && target.node->isOpen())
        hidden_.hide(change, *target.node);
    else
        remove(target, directory, name);
}

void Removal::removeDirectory(Node& directory, const std::string& name) {
    const NameChange change(changes_, directory);
    const Nodes::Resolved target = resolve(directory, name);
    if (!target.isDirectory)
        throw KernelError(ENOTDIR);
    // Asked first, because a helper may remove a directory with all that is in it.
    listings_.refuseIfNotEmpty(target.node, target.item);
    if (target.node != nullptr)
        hidden_.moveOut(change, *target.node);
    remove(target, directory, name);
}

} // namespace fusehost
