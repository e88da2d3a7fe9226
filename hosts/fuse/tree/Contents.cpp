#include "hosts/fuse/tree/Contents.h"

#include "hosts/fuse/calls/KernelError.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace fusehost {

Contents::Contents(Nodes& nodes, VolumeHandles& handles, Freshness& freshness, std::size_t requestSize)
    : nodes_(nodes), handles_(handles), freshness_(freshness), requestSize_(requestSize) {}

// The kernel takes a short answer for the end of the file and shows zeros behind it, while a helper may answer short
// for reasons of its own. So the rest is asked for until the answer is empty or the end that the kernel knows of is
// reached.
std::size_t Contents::read(Node& node, std::int64_t offset, std::span<std::byte> into) {
    return readUntil(node, node.size, offset, into);
}

std::size_t Contents::readToEnd(Node& node, std::int64_t offset, std::span<std::byte> into) {
    return readUntil(node, std::numeric_limits<std::uint64_t>::max(), offset, into);
}

std::size_t Contents::readUntil(Node& node, std::uint64_t end, std::int64_t offset, std::span<std::byte> into) {
    std::size_t total = 0;
    while (total < into.size()) {
        nodes_.itemOf(node);
        const auto at = offset + static_cast<std::int64_t>(total);
        const std::size_t count = handles_.read(node, at, into.subspan(total));
        total += count;
        if (count == 0 || static_cast<std::uint64_t>(offset) + total >= end)
            break;
    }
    return total;
}

void Contents::write(Node& node, std::int64_t offset, std::span<const std::byte> contents) {
    noteChange(node);
    node.safety = Safety::due;
    std::size_t total = 0;
    do {
        nodes_.itemOf(node);
        const auto at = offset + static_cast<std::int64_t>(total);
        const std::size_t count = handles_.write(node, at, contents.subspan(total));
        if (count == 0 && !contents.empty())
            throw KernelError(EIO);
        total += count;
    } while (total < contents.size());
    node.size = std::max(node.size, static_cast<std::uint64_t>(offset) + total);
}

void Contents::grow(Node& node, std::uint64_t size) {
    const std::byte zero{0};
    write(node, static_cast<std::int64_t>(size - 1), std::span(&zero, 1));
    node.size = size;
}

fskit::FSItemAttributes Contents::makeEmpty(Node& node) {
    nodes_.itemOf(node);
    const fskit::FSItemAttributes attributes = handles_.makeEmpty(node);
    node.safety = Safety::told;
    node.isUnconfirmed = false; // here and below: what it is about is gone
    if (!node.isOpen())
        node.deferredError.take(); // and with it whoever wrote it
    return attributes;
}

void Contents::makeAnew(Node& node) {
    nodes_.makeAnew(node);
    node.size = 0;
    node.safety = Safety::due;
}

void Contents::noteChange(Node& node) {
    freshness_.noteChange(node);
    handles_.dropReadAhead(node);
}

std::span<const std::byte> Contents::piece(std::span<const std::byte> contents, std::size_t start) const {
    return contents.subspan(start, std::min<std::size_t>(contents.size() - start, requestSize_));
}

} // namespace fusehost
