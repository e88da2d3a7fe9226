#include "hosts/fuse/tree/FileTree.h"

#include "foundation/UUID.h"
#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

using fskit::FSItemAttributes;
using fskit::FSItemPtr;

FileTree::FileTree(VolumeCalls& volume, const MountOptions& options)
    : volume_(volume), attributeMap_(options), readAhead_(volume),
      hiddenPrefix_(".kemvi-hidden-" + foundation::UUID::random().uuidString().substr(0, 8) + "-"),
      attrTimeout_(options.attrTimeout),
      trustsAbsence_(options.entryTimeout > Seconds(0) && options.negativeTimeout <= Seconds(0)),
      requestSize_(options.requestSize), quiet_(options.quiet), writeback_(options.writeback) {
    volume_.onGiveWay = [this](const FSItemPtr& item) { giveWay(item); };
}

FileTree::~FileTree() {
    volume_.onGiveWay = {};
}

void FileTree::begin() {
    nodes_.root().item = volume_.activate();
}

Node& FileTree::nodeAt(NodeID id) {
    Node* node = nodes_.find(id);
    if (node == nullptr)
        throw KernelError(ESTALE);
    return *node;
}

Node& FileTree::directoryAt(NodeID id) {
    Node& node = nodeAt(id);
    if (!node.isDirectory())
        throw KernelError(ENOTDIR);
    return node;
}

void FileTree::checkName(const std::string& name) const {
    if (name.size() > volume_.maximumNameLength())
        throw KernelError(ENAMETOOLONG);
}

void FileTree::dropVanished(Node& node) {
    closeForMove(node);
    nodes_.detach(node);
    nodes_.deleteIfUnused(node);
}

FoundItem FileTree::findChild(Node& directory, const std::string& name) {
    try {
        FoundItem found = volume_.lookup(itemOf(directory), name);
        if (!isUsableName(found.name, volume_.maximumNameLength()))
            found.name = name;
        return found;
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            if (Node* vanished = nodes_.child(directory, name))
                dropVanished(*vanished);
        throw;
    }
}

FoundItem FileTree::lookUpAgain(Node& node) {
    if (node.parent == nullptr)
        throw KernelError(ESTALE);
    const NodeID id = node.id;
    try {
        FoundItem found = findChild(*node.parent, node.name);
        if (found.attributes.type() != node.type) {
            dropVanished(node);
            throw KernelError(ESTALE);
        }
        setItem(node, found);
        return found;
    } catch (const KernelError& error) {
        // The kernel asks by number: "stale" makes it look the name up again, which "no such file" does not.
        if (error.number() == ENOENT || nodes_.find(id) == nullptr)
            throw KernelError(ESTALE);
        throw;
    }
}

// A node that came from a listing, or was moved, has no item. Where the volume makes items of names, none is looked up:
// the kernel knows the node, so it is as good as one looked up within the timeouts, and what has gone since shows in
// the operation that needs the item. That is for files known by the path of their folder and name alone. Any other path
// is the volume's to tell: what lies at the path made of the name may be another file.
FSItemPtr FileTree::makeItem(Node& node) {
    if (node.parent == nullptr || !node.hasPlainPath)
        return nullptr;
    return itemOf(*node.parent)->member(node.name, node.type, node.size);
}

void FileTree::setItem(Node& node, const FoundItem& found) {
    node.item = found.item;
    const FSItemPtr& folder = node.parent->item;
    node.hasPlainPath = folder && folder->hasMember(node.name, found.attributes.fileID());
}

const FSItemPtr& FileTree::itemOf(Node& node) {
    if (!node.item)
        node.item = makeItem(node);
    if (!node.item)
        lookUpAgain(node);
    return node.item;
}

FileTree::Resolved FileTree::resolve(Node& directory, const std::string& name) {
    checkName(name);
    if (isHidden(directory, name))
        throw KernelError(ENOENT);
    if (Node* node = nodes_.child(directory, name)) {
        if (!node->item)
            node->item = makeItem(*node);
        if (node->item)
            return {node, node->item, node->isDirectory()};
    }
    FoundItem found = findChild(directory, name);
    const bool isDirectory = found.attributes.type() == fskit::FSItemType::directory;
    Node* node = nodes_.child(directory, found.name);
    if (node != nullptr && node->isDirectory() != isDirectory) {
        dropVanished(*node);
        node = nullptr;
    }
    return {node, std::move(found.item), isDirectory};
}

Node& FileTree::adopt(Node& directory, const FoundItem& found) {
    if (Node* known = nodes_.child(directory, found.name);
        known != nullptr && known->type != fskit::FSItemType::unknown && known->type != found.attributes.type())
        dropVanished(*known);
    Node& node = nodes_.childOrNew(directory, found.name);
    node.type = found.attributes.type();
    // Handles are kept by the item's path. Under another spelling of it they would never be found again.
    if (node.isOpen() && node.item && !node.item->isSame(*found.item))
        closeForMove(node);
    setItem(node, found);
    return node;
}

TreeEntry FileTree::handOut(Node& node, const FSItemAttributes& attributes) {
    ++node.lookups;
    return {node.id, shown(node, attributes)};
}

struct stat FileTree::shown(Node& node, const FSItemAttributes& attributes) {
    node.size = attributes.size();
    // A listing taken before knows less than the kernel is told now.
    if (!node.isDirectory())
        noteChange(node);
    struct stat result = attributeMap_.map(attributes);
    if (node.hidden)
        result.st_nlink = 0;
    recent_ = {node.id, node.changed, std::chrono::steady_clock::now(), result, false};
    return result;
}

bool FileTree::isRecent(const Node& node) const {
    const auto age = std::chrono::steady_clock::now() - recent_.seen;
    return recent_.node == node.id && node.hasName() && recent_.changed == node.changed && age < briefTrust &&
           age < attrTimeout_;
}

TreeEntry FileTree::lookup(NodeID directoryID, const std::string& name) {
    Node& directory = directoryAt(directoryID);
    checkName(name);
    if (isHidden(directory, name))
        throw KernelError(ENOENT);
    try {
        FoundItem found = findChild(directory, name);
        const FSItemAttributes attributes = found.attributes;
        return handOut(adopt(directory, found), attributes);
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            absence_ = Absence{directoryID, name, std::chrono::steady_clock::now()};
        throw;
    }
}

void FileTree::forget(NodeID node, std::uint64_t lookups) {
    const FSItemPtr item = nodes_.forget(node, lookups);
    if (!item)
        return;
    try {
        volume_.reclaim(item);
    } catch (const KernelError& error) {
        error.tell(); // the kernel waits for no answer, and the item is gone either way
    }
}

} // namespace fusehost
