#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/tree/FileTree.h"

#include <algorithm>
#include <cerrno>

namespace fusehost {

FileTree::OpenDirectory& FileTree::openDirectoryAt(OpenDirectoryID id) {
    const auto found = directories_.find(id);
    if (found == directories_.end())
        throw KernelError(EBADF);
    return found->second;
}

OpenDirectoryID FileTree::openDirectory(NodeID node) {
    directoryAt(node);
    const OpenDirectoryID id{nextOpen_++};
    directories_[id].node = node;
    return id;
}

void FileTree::releaseDirectory(OpenDirectoryID id) {
    directories_.erase(id);
}

void FileTree::startListing(OpenDirectoryID id) {
    OpenDirectory& open = openDirectoryAt(id);
    Node& node = nodeAt(open.node);
    open.snapshot.reset();
    if (!node.hasName())
        return; // removed while open: an empty listing, as on any disk
    open.snapshot = std::make_unique<DirectorySnapshot>(volume_, itemOf(node), changes_);
}

std::size_t FileTree::listedCount(OpenDirectoryID id) {
    const OpenDirectory& open = openDirectoryAt(id);
    return open.snapshot ? open.snapshot->entries().size() : 0;
}

const ListedEntry* FileTree::listedEntry(OpenDirectoryID id, std::size_t index) {
    OpenDirectory& open = openDirectoryAt(id);
    const ListedEntry& entry = open.snapshot->entries().at(index);
    return isHidden(nodeAt(open.node), entry.name) ? nullptr : &entry;
}

namespace {

/// A helper may list names alone. What it leaves out reads as an empty file of 1970, which is not to be believed.
bool tellsNothing(const ListedEntry& entry) {
    return entry.type == fskit::FSItemType::file && entry.attributes.size() == 0 &&
           entry.attributes.modifyTime().tv_sec == 0 && entry.attributes.modifyTime().tv_nsec == 0;
}

} // namespace

std::optional<TreeEntry> FileTree::listedNode(OpenDirectoryID id, const ListedEntry& entry) {
    OpenDirectory& open = openDirectoryAt(id);
    Node& directory = nodeAt(open.node);
    const DirectorySnapshot& snapshot = *open.snapshot;
    if (entry.name == "." || entry.name == ".." || !directory.hasName() ||
        remainingTrust(id, attrTimeout_) <= Seconds(0))
        return std::nullopt;
    if (tellsNothing(entry))
        return std::nullopt;
    // What was changed through the mount since the listing was taken must not be shown, let alone cached, as it was
    // then: an old size would make the kernel cut the file.
    const Node* known = nodes_.child(directory, entry.name);
    if (known == nullptr && directory.changed > snapshot.changeCount())
        return std::nullopt;
    if (known != nullptr && (known->changed > snapshot.changeCount() || known->type != entry.type))
        return std::nullopt;
    Node& node = nodes_.childOrNew(directory, entry.name);
    node.type = entry.type;
    node.hasPlainPath = directory.item && directory.item->hasMember(entry.name, entry.id);
    const TreeEntry handedOut = handOut(node, entry.attributes);
    node.changed = snapshot.changeCount(); // the kernel now knows what was true then
    return handedOut;
}

Seconds FileTree::remainingTrust(OpenDirectoryID id, Seconds timeout) {
    const OpenDirectory& open = openDirectoryAt(id);
    return open.snapshot ? std::max(Seconds(0), timeout - Seconds(open.snapshot->age())) : Seconds(0);
}

void FileTree::refuseIfNotEmpty(Node* directory, const fskit::FSItemPtr& item) {
    const DirectorySnapshot snapshot(volume_, item, changes_);
    if (snapshot.leftNamesOut())
        throw KernelError(ENOTEMPTY);
    for (const ListedEntry& entry : snapshot.entries()) {
        const bool counts = entry.name != "." && entry.name != "..";
        if (counts && (directory == nullptr || !isHidden(*directory, entry.name)))
            throw KernelError(ENOTEMPTY);
    }
}

} // namespace fusehost
