#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/tree/FileTree.h"

#include <cerrno>
#include <limits>

namespace fusehost {

using fskit::FSItemAttributes;
using fskit::FSItemPtr;

namespace {

// No helper gets any other: a file that runs as its owner would do so for everybody who reaches the served tree.
constexpr mode_t permissionBits = 0777;

} // namespace

// The kernel asks once more before each change of owner, which mostly comes with other changes.
struct stat FileTree::getAttributes(NodeID id) {
    Node& node = nodeAt(id);
    return recent_.isOfAChange && isRecent(node) ? recent_.attributes : askForAttributes(node);
}

struct stat FileTree::askForAttributes(Node& node) {
    if (!node.item) {
        const FoundItem found = lookUpAgain(node);
        return shown(node, found.attributes);
    }
    try {
        const FSItemAttributes attributes = volume_.getAttributes(node.item);
        if (attributes.type() == node.type)
            return shown(node, attributes);
    } catch (const KernelError& error) {
        if (error.number() != ENOENT || node.id == rootNodeID)
            throw;
    }
    dropVanished(node);
    throw KernelError(ESTALE);
}

struct stat FileTree::setAttributes(NodeID id, const AttributeChange& change) {
    closeUnusedReaders();
    Node& node = nodeAt(id);
    const FSItemPtr item = itemOf(node);
    checkOwner(item, change);
    std::optional<struct stat> result;
    if (change.size)
        result = changeSize(node, *change.size);
    if (change.mode || change.modifyTime) {
        fskit::FSItemSetAttributesRequest request;
        if (change.mode) {
            request.setMode(*change.mode & permissionBits);
            node.isWriteProtected = (*change.mode & S_IWUSR) == 0;
        }
        if (change.modifyTime)
            request.setModifyTime(*change.modifyTime);
        noteChange(node);
        const FSItemAttributes attributes = volume_.setAttributes(item, request);
        // The root is shown as the volume shows it, which is not what the helper says of it.
        if (id != rootNodeID)
            result = shown(node, attributes);
    }
    if (!result)
        result = isRecent(node) ? recent_.attributes : askForAttributes(node);
    recent_.isOfAChange = recent_.node == id;
    return *result;
}

void FileTree::checkOwner(const FSItemPtr& item, const AttributeChange& change) {
    if (quiet_ || (!change.uid && !change.gid))
        return;
    const auto known = item->knownAttributes();
    const struct stat current = attributeMap_.map(known ? *known : volume_.getAttributes(item));
    if (change.uid.value_or(current.st_uid) != current.st_uid || change.gid.value_or(current.st_gid) != current.st_gid)
        throw KernelError(EPERM);
}

struct stat FileTree::changeSize(Node& node, std::uint64_t size) {
    if (node.isDirectory())
        throw KernelError(EISDIR);
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        throw KernelError(EFBIG);
    noteChange(node);
    readAhead_.drop(node.id);
    try {
        const FSItemAttributes attributes = size == 0 ? makeEmpty(node) : resize(node, size);
        closeUnused(node);
        return shown(node, attributes);
    } catch (const KernelError&) {
        closeQuietly(node);
        throw;
    }
}

FSItemAttributes FileTree::makeEmpty(Node& node) {
    fskit::FSItemSetAttributesRequest request;
    request.setSize(0);
    node.mayHaveWriteHandle = false; // the volume gives it back
    const FSItemAttributes attributes = volume_.setAttributes(itemOf(node), request);
    node.safety = Safety::told;
    if (!node.isOpen())
        node.deferredError = 0; // what it is about is gone, and with it whoever wrote it
    return attributes;
}

FSItemAttributes FileTree::resize(Node& node, std::uint64_t size) {
    // A fresh look: what is kept must be judged by the file as it is now, which may have grown behind the mount. And
    // fresh handles: one that others hold may belong to a file that was replaced there.
    closeForMove(node);
    const FoundItem found = lookUpAgain(node);
    node.size = found.attributes.size();
    if (size == node.size)
        return found.attributes;
    if (size < node.size)
        shrink(node, size);
    else
        grow(node, size);
    return volume_.getAttributes(itemOf(node));
}

void FileTree::grow(Node& node, std::uint64_t size) {
    const std::byte zero{0};
    writeWhole(node, static_cast<std::int64_t>(size - 1), std::span(&zero, 1));
    node.size = size;
}

std::string FileTree::readSymbolicLink(NodeID id) {
    return volume_.readSymbolicLink(itemOf(nodeAt(id)));
}

} // namespace fusehost
