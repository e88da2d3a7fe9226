#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"
#include "hosts/fuse/tree/ByteSpool.h"
#include "hosts/fuse/tree/FileTree.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace fusehost {
namespace {

constexpr std::string_view headOf = "-head-of-";

} // namespace

// The volume can only empty a file, or keep as much of its head as one read of the helper happens to return. So the
// head is read here, by as many reads as it takes, and written back after the file was emptied. Meanwhile a copy of it
// lies beside the file, safe with the helper, so that the head survives whoever dies in between. The copy is not
// renamed over the file: the protocol does not tell a file's mode, nor its owner and its other names, and the copy has
// neither. The helper is told to make the file safe when the head is back, not when it is empty.

void FileTree::shrink(Node& node, std::uint64_t size) {
    ByteSpool head(temporaryFolder_);
    readHead(node, size, head);
    Node* copy = copyHead(node, head);
    try {
        replaceByHead(node, head);
    } catch (const KernelError& error) {
        restoreHead(node, head, std::exchange(copy, nullptr), error);
    }
    if (copy != nullptr)
        dropCopy(*copy);
    if (head.size() < size)
        grow(node, size);
    node.size = size;
}

void FileTree::readHead(Node& node, std::uint64_t size, ByteSpool& head) {
    std::vector<std::byte> block(static_cast<std::size_t>(std::min<std::uint64_t>(size, requestSize_)));
    while (head.size() < size) {
        const auto wanted = std::min<std::uint64_t>(size - head.size(), block.size());
        const std::span<std::byte> part(block.data(), static_cast<std::size_t>(wanted));
        const std::size_t count = readWhole(node, static_cast<std::int64_t>(head.size()), part);
        head.append(part.first(count));
        if (count < part.size())
            break;
    }
}

void FileTree::writeHead(Node& node, ByteSpool& head) {
    std::vector<std::byte> block(static_cast<std::size_t>(std::min<std::uint64_t>(head.size(), requestSize_)));
    for (std::uint64_t at = 0; at < head.size(); at += block.size()) {
        const auto count = std::min<std::uint64_t>(head.size() - at, block.size());
        const std::span<std::byte> part(block.data(), static_cast<std::size_t>(count));
        head.copy(at, part);
        writeWhole(node, static_cast<std::int64_t>(at), part);
    }
}

// A removed file that lives on for those who have it open dies with the mount anyway. Where no second file can be made,
// as in a folder that takes no new names or on a full disk, the head is nowhere but in this process for a while.
Node* FileTree::copyHead(Node& node, ByteSpool& head) {
    if (node.hidden || head.size() == 0)
        return nullptr;
    constexpr mode_t privateMode = 0600; // the file itself may be private
    Node* copy = nullptr;
    try {
        Node& directory = *node.parent;
        FoundItem made = createNew(directory, copyName(node), fskit::FSItemType::file, privateMode);
        copy = &adopt(directory, made);
        writeHead(*copy, head);
        makeSafe(*copy);
        return copy;
    } catch (const KernelError&) {
        if (copy != nullptr)
            dropCopy(*copy);
        return nullptr;
    }
}

// It says whose head it is, as far as there is room for that: whoever finds one after a crash may need it.
std::string FileTree::copyName(const Node& node) {
    std::string name = hiddenName() + std::string(headOf) + node.name;
    if (name.size() <= volume_.maximumNameLength())
        return name;
    std::size_t end = volume_.maximumNameLength();
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) // not within a character
        --end;
    name.resize(end);
    return name;
}

void FileTree::dropCopy(Node& copy) {
    Node& directory = *copy.parent;
    closeQuietly(copy);
    try {
        volume_.remove(itemOf(copy), itemOf(directory), copy.name);
    } catch (const KernelError& error) {
        error.tell();
        hostLog().error({"a copy that is needed no more stays in the served tree, named ",
                         foundation::logPrivate(copy.name), ": ", foundation::logPublic(error.what())});
    }
    noteChange(directory);
    nodes_.detach(copy);
    nodes_.deleteIfUnused(copy);
}

// As a create, because a change of size to 0 would have the helper make the empty file safe.
void FileTree::replaceByHead(Node& node, ByteSpool& head) {
    FoundItem emptied = volume_.create(itemOf(*node.parent), node.name, fskit::FSItemType::file);
    node.item = std::move(emptied.item);
    node.size = 0;
    node.safety = Safety::due;
    writeHead(node, head);
    makeSafe(node);
}

std::uint64_t FileTree::sizeNow(Node& node) {
    try {
        return volume_.getAttributes(itemOf(node)).size();
    } catch (const KernelError&) {
        return 0; // what is not known to be there may be lost
    }
}

// Writing the head once more does no harm to a file that was not emptied after all.
void FileTree::restoreHead(Node& node, ByteSpool& head, Node* copy, const KernelError& failure) {
    bool isSafe = false;
    try {
        writeHead(node, head);
        makeSafe(node);
        isSafe = true;
    } catch (const KernelError&) {
    }
    const std::uint64_t size = sizeNow(node);
    const bool wasNeverEmptied = size > head.size();
    const bool isBack = isSafe && size == head.size();
    if (wasNeverEmptied || isBack) {
        if (copy != nullptr)
            dropCopy(*copy);
        if (isBack)
            return;
    } else if (copy == nullptr) {
        hostLog().error({"shortening ", foundation::logPrivate(node.name), " failed; what it held from byte ",
                         foundation::logPublic(std::to_string(size)), " on may be lost"});
    } else if (putInPlace(*copy, node)) {
        return;
    } else {
        leaveCopy(*copy, node);
    }
    throw KernelError(failure);
}

// The last resort: what the file held is worth more than its mode and owner.
bool FileTree::putInPlace(Node& copy, Node& node) {
    Node& directory = *node.parent;
    closeEverything(node);
    try {
        volume_.rename(itemOf(copy), itemOf(directory), copy.name, itemOf(directory), node.name);
    } catch (const KernelError&) {
        return false;
    }
    hostLog().error({"shortening ", foundation::logPrivate(node.name),
                     ": its head could not be written back; a copy with mode 0600 took its place"});
    noteChange(directory);
    nodes_.detach(copy);
    nodes_.deleteIfUnused(copy);
    node.item.reset(); // its handles were of the file that is gone
    node.safety = Safety::told;
    return true;
}

void FileTree::leaveCopy(Node& copy, const Node& node) {
    hostLog().error({"shortening ", foundation::logPrivate(node.name), " failed; its head is kept beside it, as ",
                     foundation::logPublic(copy.name.substr(0, copy.name.find(headOf) + headOf.size())),
                     foundation::logPrivate(node.name)});
    closeQuietly(copy);
    nodes_.deleteIfUnused(copy);
}

} // namespace fusehost
