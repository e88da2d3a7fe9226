#include "hosts/fuse/tree/Shrinking.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace fusehost {

Shrinking::Shrinking(Nodes& nodes, Contents& contents, Durability& durability, HeadCopies& copies)
    : nodes_(nodes), contents_(contents), durability_(durability), copies_(copies) {}

void Shrinking::shrink(Node& node, std::uint64_t size) {
    ByteSpool head(folder_);
    readHead(node, size, head);
    Node* copy = copyHead(node, head);
    try {
        replaceByHead(node, head);
    } catch (const KernelError& error) {
        restoreHead(node, head, std::exchange(copy, nullptr), error);
    }
    if (copy != nullptr)
        copies_.drop(*copy);
    if (head.size() < size)
        contents_.grow(node, size);
    node.size = size;
}

void Shrinking::readHead(Node& node, std::uint64_t size, ByteSpool& head) {
    std::vector<std::byte> block(static_cast<std::size_t>(std::min<std::uint64_t>(size, contents_.requestSize())));
    while (head.size() < size) {
        const auto wanted = std::min<std::uint64_t>(size - head.size(), block.size());
        const std::span<std::byte> part(block.data(), static_cast<std::size_t>(wanted));
        const std::size_t count = contents_.read(node, static_cast<std::int64_t>(head.size()), part);
        head.append(part.first(count));
        if (count < part.size())
            break;
    }
}

void Shrinking::writeHead(Node& node, ByteSpool& head) {
    std::vector<std::byte> block(
        static_cast<std::size_t>(std::min<std::uint64_t>(head.size(), contents_.requestSize())));
    for (std::uint64_t at = 0; at < head.size(); at += block.size()) {
        const auto count = std::min<std::uint64_t>(head.size() - at, block.size());
        const std::span<std::byte> part(block.data(), static_cast<std::size_t>(count));
        head.copy(at, part);
        contents_.write(node, static_cast<std::int64_t>(at), part);
    }
}

// A removed file that lives on for those who have it open dies with the mount anyway. Where no second file can be made,
// as in a folder that takes no new names or on a full disk, the head is nowhere but in this process for a while.
Node* Shrinking::copyHead(Node& node, ByteSpool& head) {
    if (node.hidden || head.size() == 0)
        return nullptr;
    Node* copy = nullptr;
    try {
        copy = &copies_.make(node);
        writeHead(*copy, head);
        durability_.makeSafe(*copy);
        return copy;
    } catch (const KernelError&) {
        if (copy != nullptr)
            copies_.drop(*copy);
        return nullptr;
    }
}

// As a create, because a change of size to 0 would have the helper make the empty file safe.
void Shrinking::replaceByHead(Node& node, ByteSpool& head) {
    contents_.makeAnew(node);
    writeHead(node, head);
    durability_.makeSafe(node);
}

std::uint64_t Shrinking::sizeNow(Node& node) {
    try {
        return nodes_.attributesOf(node).size();
    } catch (const KernelError&) {
        return 0; // what is not known to be there may be lost
    }
}

// Writing the head once more does no harm to a file that was not emptied after all.
void Shrinking::restoreHead(Node& node, ByteSpool& head, Node* copy, const KernelError& failure) {
    bool isSafe = false;
    try {
        writeHead(node, head);
        durability_.makeSafe(node);
        isSafe = true;
    } catch (const KernelError&) {
    }
    const std::uint64_t size = sizeNow(node);
    const bool wasNeverEmptied = size > head.size();
    const bool isBack = isSafe && size == head.size();
    if (wasNeverEmptied || isBack) {
        if (copy != nullptr)
            copies_.drop(*copy);
        if (isBack)
            return;
    } else if (copy == nullptr) {
        hostLog().error({"shortening ", foundation::logPrivate(node.name), " failed; what it held from byte ",
                         foundation::logPublic(std::to_string(size)), " on may be lost"});
    } else if (copies_.putInPlace(*copy, node)) {
        return; // the last resort: what the file held is worth more than its mode and owner
    } else {
        copies_.leave(*copy, node);
    }
    throw KernelError(failure);
}

} // namespace fusehost
