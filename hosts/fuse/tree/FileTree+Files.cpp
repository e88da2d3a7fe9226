#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/tree/FileTree.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <set>

namespace fusehost {

using fskit::FSVolumeOpenModes;

FileTree::OpenFile& FileTree::fileAt(OpenFileID id) {
    const auto found = files_.find(id);
    if (found == files_.end())
        throw KernelError(EBADF);
    return found->second;
}

FSVolumeOpenModes FileTree::modesFor(int flags) const {
    switch (flags & O_ACCMODE) {
    case O_RDONLY: return FSVolumeOpenModes::read;
    // With the writeback cache the kernel reads the rest of a page that is written in part.
    case O_WRONLY: return writeback_ ? FSVolumeOpenModes::readWrite : FSVolumeOpenModes::write;
    default: return FSVolumeOpenModes::readWrite;
    }
}

OpenFileID FileTree::addOpenFile(Node& node, int flags) {
    const FSVolumeOpenModes modes = modesFor(flags);
    OpenFile file{node.id, contains(modes, FSVolumeOpenModes::read), contains(modes, FSVolumeOpenModes::write), false};
    node.readers += file.reads;
    node.writers += file.writes;
    node.unflushedWriters += file.writes;
    const OpenFileID id{nextOpen_++};
    files_.emplace(id, file);
    return id;
}

OpenFileID FileTree::open(NodeID id, int flags) {
    Node& node = nodeAt(id);
    if (node.isDirectory())
        throw KernelError(EISDIR);
    // The handle of an earlier opener must not be taken for one of the file that has the name now.
    if (std::any_of(unused_.begin(), unused_.end(), [&](const auto& item) { return item->isSame(*itemOf(node)); }))
        closeUnusedReaders();
    // A handle that others hold may belong to a file that was replaced behind the mount: every opener gets the file
    // that now has the name.
    if (node.isOpen())
        closeForMove(node);
    if ((flags & O_TRUNC) != 0)
        changeSize(node, 0);
    const FSVolumeOpenModes modes = modesFor(flags);
    try {
        openHandles(node, modes);
    } catch (const KernelError& error) {
        if (error.number() != ENOENT)
            throw;
        // Replaced meanwhile, or gone: then ESTALE has the kernel look the name up itself. If the name is there and
        // still nothing can be opened, that is the answer.
        closeForMove(node);
        lookUpAgain(node);
        openHandles(node, modes);
    }
    return addOpenFile(node, flags);
}

void FileTree::openHandles(Node& node, FSVolumeOpenModes modes) {
    const fskit::FSItemPtr item = itemOf(node);
    node.mayHaveWriteHandle = node.mayHaveWriteHandle || contains(modes, FSVolumeOpenModes::write);
    try {
        volume_.open(item, modes);
    } catch (const KernelError&) {
        closeQuietly(node);
        throw;
    }
}

std::size_t FileTree::read(OpenFileID id, std::int64_t offset, std::span<std::byte> into) {
    OpenFile& file = fileAt(id);
    Node& node = nodeAt(file.node);
    std::size_t total = readAhead_.take(node.id, offset, into, attrTimeout_);
    if (total == 0 || (total < into.size() && static_cast<std::uint64_t>(offset) + total < node.size)) {
        try {
            total += readWhole(node, offset + static_cast<std::int64_t>(total), into.subspan(total));
        } catch (const KernelError& error) {
            // The handle had to be opened anew and the file is gone: what was there when it was opened is not.
            throw error.number() == ENOENT ? KernelError(ESTALE) : error;
        }
    }
    readOn(file, node, offset, total);
    return total;
}

// A program that reads one block after the other will most likely want the next one. With timeouts of 0 nothing is
// asked before it is wanted.
void FileTree::readOn(OpenFile& file, Node& node, std::int64_t offset, std::size_t size) {
    const std::int64_t lastEnd = std::exchange(file.readEnd, offset + static_cast<std::int64_t>(size));
    const bool isSequential = offset > 0 && offset == lastEnd;
    if (isSequential && size > 0 && attrTimeout_ > Seconds(0) && static_cast<std::uint64_t>(file.readEnd) < node.size)
        readAhead_.start(node.id, itemOf(node), file.readEnd, size);
}

// The kernel takes a short answer for the end of the file and shows zeros behind it, while a helper may answer short
// for reasons of its own. So the rest is asked for until the answer is empty or the end that the kernel knows of is
// reached; an error on the way is an error of the whole.
std::size_t FileTree::readWhole(Node& node, std::int64_t offset, std::span<std::byte> into) {
    std::size_t total = 0;
    while (total < into.size()) {
        const auto at = offset + static_cast<std::int64_t>(total);
        const std::size_t count = volume_.read(itemOf(node), at, into.subspan(total));
        total += count;
        if (count == 0 || static_cast<std::uint64_t>(offset) + total >= node.size)
            break;
    }
    return total;
}

Node& FileTree::writtenAt(OpenFileID id) {
    OpenFile& file = fileAt(id);
    Node& node = nodeAt(file.node);
    if (file.flushed) {
        file.flushed = false;
        ++node.unflushedWriters;
    }
    return node;
}

std::span<const std::byte> FileTree::pieceAt(std::span<const std::byte> contents, std::size_t start) const {
    return contents.subspan(start, std::min<std::size_t>(contents.size() - start, requestSize_));
}

std::size_t FileTree::write(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents) {
    Node& node = writtenAt(id);
    std::size_t total = 0;
    do {
        const auto piece = pieceAt(contents, total);
        try {
            writeWhole(node, offset + static_cast<std::int64_t>(total), piece);
        } catch (const KernelError&) {
            if (total == 0)
                throw;
            return total; // what is written is written; the program meets the error when it goes on
        }
        total += piece.size();
    } while (total < contents.size());
    return total;
}

// The kernel gives pages up as written whatever the answer, and asks for them no more: so every piece is tried. Who
// mapped the file may have let go of it by now, which is why the error waits for whoever asks next.
void FileTree::writePages(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents) {
    Node& node = writtenAt(id);
    std::optional<KernelError> failure;
    for (std::size_t total = 0; total < contents.size();) {
        const auto piece = pieceAt(contents, total);
        try {
            writeWhole(node, offset + static_cast<std::int64_t>(total), piece);
        } catch (const KernelError& error) {
            if (!failure)
                failure = error;
        }
        total += piece.size();
    }
    if (!failure)
        return;
    deferError(node, *failure);
    throw KernelError(*failure);
}

void FileTree::writeWhole(Node& node, std::int64_t offset, std::span<const std::byte> contents) {
    noteChange(node);
    readAhead_.drop(node.id);
    node.safety = Safety::due;
    node.mayHaveWriteHandle = true;
    std::size_t total = 0;
    do {
        const auto at = offset + static_cast<std::int64_t>(total);
        const std::size_t count = volume_.write(itemOf(node), at, contents.subspan(total));
        if (count == 0 && !contents.empty())
            throw KernelError(EIO);
        total += count;
    } while (total < contents.size());
    node.size = std::max(node.size, static_cast<std::uint64_t>(offset) + total);
}

void FileTree::flush(OpenFileID id) {
    OpenFile& file = fileAt(id);
    Node& node = nodeAt(file.node);
    if (!file.writes)
        return;
    if (!file.flushed) {
        file.flushed = true;
        --node.unflushedWriters;
    }
    const int deferred = std::exchange(node.deferredError, 0);
    closeUnused(node);
    if (deferred != 0)
        throw KernelError(deferred);
}

void FileTree::release(OpenFileID id) {
    const OpenFile file = fileAt(id);
    files_.erase(id);
    Node& node = nodeAt(file.node);
    node.readers -= file.reads;
    node.writers -= file.writes;
    node.unflushedWriters -= file.writes && !file.flushed;
    if (node.isOpen() || file.writes || node.hidden || !node.item)
        closeQuietly(node);
    else
        closeWhenIdle(node);
    if (node.hidden && !node.isOpen())
        removeHidden(node);
    else
        nodes_.deleteIfUnused(node);
}

std::vector<NodeID> FileTree::writtenNodes() {
    std::set<NodeID> nodes;
    for (const auto& [id, file] : files_)
        if (file.writes)
            nodes.insert(file.node);
    std::erase_if(nodes, [&](NodeID id) {
        const Node* node = nodes_.find(id);
        return node == nullptr || node->hidden;
    });
    return {nodes.begin(), nodes.end()};
}

void FileTree::closeUnused(Node& node) {
    readAhead_.drop(node.id);
    if (!node.item)
        return; // nothing can be open: the volume's handles went when the item did
    const FSVolumeOpenModes reading = node.readers > 0 ? FSVolumeOpenModes::read : FSVolumeOpenModes::none;
    const FSVolumeOpenModes writing = node.unflushedWriters > 0 ? FSVolumeOpenModes::write : FSVolumeOpenModes::none;
    node.mayHaveWriteHandle = node.mayHaveWriteHandle && node.unflushedWriters > 0;
    volume_.close(node.item, reading | writing);
}

void FileTree::closeQuietly(Node& node) noexcept {
    quietly("closing a file", [&] {
        const bool closesWriter = node.mayHaveWriteHandle && node.unflushedWriters == 0;
        try {
            closeUnused(node);
        } catch (const KernelError& error) {
            if (closesWriter)
                deferError(node, error);
            throw;
        }
    });
}

// A program that reads many small files opens the next one right after it closed the last. It need not wait for the
// handle of the last one to be given back.
void FileTree::closeWhenIdle(Node& node) {
    constexpr std::size_t mostUnused = 8;
    readAhead_.drop(node.id);
    unused_.push_back(node.item);
    if (unused_.size() > mostUnused)
        doNext();
}

void FileTree::doNext() noexcept {
    if (unused_.empty())
        return;
    const fskit::FSItemPtr item = std::move(unused_.front());
    unused_.pop_front();
    closeUnusedReader(item);
}

void FileTree::closeUnusedReader(const fskit::FSItemPtr& item) noexcept {
    quietly("closing a file that was read", [&] { volume_.close(item, FSVolumeOpenModes::none); });
}

void FileTree::closeUnusedReaders() noexcept {
    while (!unused_.empty())
        doNext();
}

// Two names whose paths have the same hash can be open side by side, and anyone can find such names. The volume would
// write to the one through the handle of the other. So they take turns: slow, and right.
void FileTree::giveWay(const fskit::FSItemPtr& item) {
    std::erase_if(unused_, [&](const fskit::FSItemPtr& unused) { return unused->isSame(*item); });
    for (const auto& [id, file] : files_)
        if (Node* node = nodes_.find(file.node); node != nullptr && node->item && node->item->isSame(*item))
            closeEverything(*node);
    closeUnusedReader(item); // where it is not closed yet: nobody is left to be told of a failure
}

void FileTree::closeEverything(Node& node) {
    readAhead_.drop(node.id);
    if (!node.item)
        return;
    node.mayHaveWriteHandle = false;
    try {
        volume_.close(node.item, FSVolumeOpenModes::none);
    } catch (const KernelError& error) {
        error.tell(); // the program that is told later gets the number alone
        if (node.writers > 0)
            deferError(node, error);
    }
}

void FileTree::closeForMove(Node& node) {
    if (node.isOpen())
        closeEverything(node);
    else
        readAhead_.drop(node.id);
    for (Node* child = node.firstChild; child != nullptr; child = child->nextSibling)
        closeForMove(*child);
}

} // namespace fusehost
