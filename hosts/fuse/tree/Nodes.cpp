#include "hosts/fuse/tree/Nodes.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <utility>

namespace fusehost {

using fskit::FSItemPtr;
using fskit::FSItemType;

Nodes::Nodes(VolumeCalls& volume, NodeTable& table, VolumeHandles& handles)
    : volume_(volume), table_(table), handles_(handles) {}

Node& Nodes::at(NodeID id) {
    Node* node = table_.find(id);
    if (node == nullptr)
        throw KernelError(ESTALE);
    return *node;
}

Node& Nodes::directoryAt(NodeID id) {
    Node& node = at(id);
    if (!node.isDirectory())
        throw KernelError(ENOTDIR);
    return node;
}

Node* Nodes::child(const Node& directory, const std::string& name) {
    return table_.child(directory, name);
}

void Nodes::checkName(const std::string& name) const {
    if (name.size() > volume_.maximumNameLength())
        throw KernelError(ENAMETOOLONG);
}

const FSItemPtr& Nodes::itemOf(Node& node) {
    if (!node.item)
        makeItem(node);
    if (!node.item)
        lookUpAgain(node);
    return node.item;
}

// A node that came from a listing, or was moved, has no item. Where the volume makes items of names, none is looked up:
// the kernel knows the node, so it is as good as one looked up within the timeouts, and what has gone since shows in
// the operation that needs the item. That is for files known by the path of their folder and name alone. Any other path
// is the volume's to tell: what lies at the path made of the name may be another file.
void Nodes::makeItem(Node& node) {
    if (node.parent == nullptr || !node.hasPlainPath)
        return;
    node.item = itemOf(*node.parent)->member(node.name, node.type, node.size);
    node.isItemMade = true;
}

const FSItemPtr& Nodes::toldItemOf(Node& node) {
    if (!node.item || node.isItemMade)
        lookUpAgain(node);
    return node.item;
}

void Nodes::setItem(Node& node, const FoundItem& found) {
    node.item = found.item;
    node.isItemMade = false;
    const FSItemPtr& folder = node.parent->item;
    node.hasPlainPath = folder && folder->hasMember(node.name, found.attributes.fileID());
}

fskit::FSItemAttributes Nodes::attributesOf(Node& node) {
    return volume_.getAttributes(itemOf(node));
}

FoundItem Nodes::lookUpAgain(Node& node) {
    if (node.parent == nullptr)
        throw KernelError(ESTALE);
    const NodeID id = node.id;
    try {
        FoundItem found = find(*node.parent, node.name);
        if (found.attributes.type() != node.type) {
            dropVanished(node);
            throw KernelError(ESTALE);
        }
        setItem(node, found);
        return found;
    } catch (const KernelError& error) {
        // The kernel asks by number: "stale" makes it look the name up again, which "no such file" does not.
        if (error.number() == ENOENT || table_.find(id) == nullptr)
            throw KernelError(ESTALE);
        throw;
    }
}

FSItemPtr Nodes::makeAnew(Node& node) {
    FoundItem made = volume_.create(itemOf(*node.parent), node.name, FSItemType::file);
    node.item = std::move(made.item);
    node.isItemMade = false;
    return node.item;
}

SoughtItem Nodes::seek(Node& directory, const std::string& name) {
    SoughtItem sought = volume_.seek(itemOf(directory), name);
    if (sought.found) {
        if (!isUsableName(sought.found->name, volume_.maximumNameLength()))
            sought.found->name = name;
    } else if (Node* vanished = child(directory, name))
        dropVanished(*vanished);
    return sought;
}

FoundItem Nodes::find(Node& directory, const std::string& name) {
    return seek(directory, name).orThrow();
}

bool Nodes::isTaken(Node& directory, const std::string& name) {
    return volume_.seek(itemOf(directory), name).found.has_value();
}

Nodes::Resolved Nodes::resolve(Node& directory, const std::string& name) {
    if (Node* node = child(directory, name)) {
        if (!node->item)
            makeItem(*node);
        if (node->item)
            return {node, node->item, node->isDirectory()};
    }
    FoundItem found = find(directory, name);
    const bool isDirectory = found.attributes.type() == FSItemType::directory;
    Node* node = child(directory, found.name);
    if (node != nullptr && node->isDirectory() != isDirectory) {
        dropVanished(*node);
        node = nullptr;
    }
    return {node, std::move(found.item), isDirectory};
}

Node& Nodes::adopt(Node& directory, const FoundItem& found) {
    if (Node* known = child(directory, found.name);
        known != nullptr && known->type != FSItemType::unknown && known->type != found.attributes.type())
        dropVanished(*known);
    Node& node = table_.childOrNew(directory, found.name);
    node.type = found.attributes.type();
    // Handles are kept by the item's path. Under another spelling of it they would never be found again.
    if (node.isOpen() && node.item && !node.item->isSame(*found.item))
        handles_.closeForMove(node);
    setItem(node, found);
    return node;
}

Node& Nodes::adoptListed(Node& directory, const ListedEntry& entry) {
    Node& node = table_.childOrNew(directory, entry.name);
    node.type = entry.type;
    node.hasPlainPath = directory.item && directory.item->hasMember(entry.name, entry.id);
    return node;
}

void Nodes::move(Node& node, Node& directory, const std::string& name) {
    table_.move(node, directory, name);
}

void Nodes::drop(Node& node) {
    table_.detach(node);
    table_.deleteIfUnused(node);
}

void Nodes::dropVanished(Node& node) {
    ++vanished_;
    handles_.closeForMove(node);
    drop(node);
}

void Nodes::dropIfUnused(Node& node) {
    table_.deleteIfUnused(node);
}

void Nodes::forget(NodeID id, std::uint64_t lookups) {
    const FSItemPtr item = table_.forget(id, lookups);
    if (!item)
        return;
    try {
        volume_.reclaim(item);
    } catch (const KernelError& error) {
        error.tell(); // the kernel waits for no answer, and the item is gone either way
    }
}

} // namespace fusehost
