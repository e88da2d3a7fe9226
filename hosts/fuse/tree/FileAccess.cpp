#include "hosts/fuse/tree/FileAccess.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <optional>
#include <utility>

namespace fusehost {

FileAccess::FileAccess(OpenFiles& files, VolumeHandles& handles, Contents& contents)
    : files_(files), handles_(handles), contents_(contents) {}

std::size_t FileAccess::read(OpenFileID id, std::int64_t offset, std::span<std::byte> into) {
    OpenFile& file = files_.at(id);
    Node& node = files_.nodeOf(id);
    std::size_t total = handles_.takeReadAhead(node, offset, into);
    if (total == 0 || (total < into.size() && static_cast<std::uint64_t>(offset) + total < node.size)) {
        try {
            const auto at = offset + static_cast<std::int64_t>(total);
            total += file.isOfUnknownSize ? contents_.readToEnd(node, at, into.subspan(total))
                                          : contents_.read(node, at, into.subspan(total));
        } catch (const KernelError& error) {
            // The handle had to be opened anew and the file is gone: what was there when it was opened is not.
            throw error.number() == ENOENT ? KernelError(ESTALE) : error;
        }
    }
    readOn(file, node, offset, total);
    return total;
}

// A program that reads one block after the other will most likely want the next one.
void FileAccess::readOn(OpenFile& file, const Node& node, std::int64_t offset, std::size_t size) {
    const std::int64_t lastEnd = std::exchange(file.readEnd, offset + static_cast<std::int64_t>(size));
    const bool isSequential = offset > 0 && offset == lastEnd;
    if (isSequential && size > 0 && static_cast<std::uint64_t>(file.readEnd) < node.size)
        handles_.readAhead(node, file.readEnd, size);
}

std::size_t FileAccess::write(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents) {
    Node& node = files_.nodeToWrite(id);
    std::size_t total = 0;
    do {
        const auto piece = contents_.piece(contents, total);
        try {
            contents_.write(node, offset + static_cast<std::int64_t>(total), piece);
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
void FileAccess::writePages(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents) {
    Node& node = files_.nodeToWrite(id);
    std::optional<KernelError> failure;
    for (std::size_t total = 0; total < contents.size();) {
        const auto piece = contents_.piece(contents, total);
        try {
            contents_.write(node, offset + static_cast<std::int64_t>(total), piece);
        } catch (const KernelError& error) {
            if (!failure)
                failure = error;
        }
        total += piece.size();
    }
    if (!failure)
        return;
    node.deferredError.keep(failure->number());
    throw KernelError(*failure);
}

} // namespace fusehost
