#pragma once

#include "hosts/fuse/tree/Contents.h"
#include "hosts/fuse/tree/OpenFiles.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace fusehost {

/// Reads and writes open files. Failures are KernelErrors; EBADF for an unknown file.
class FileAccess {
public:
    FileAccess(OpenFiles& files, VolumeHandles& handles, Contents& contents);

    /// Bytes read, fewer than `into` has at the end of the file alone. ESTALE if the file is gone and must be opened
    /// anew.
    std::size_t read(OpenFileID id, std::int64_t offset, std::span<std::byte> into);
    /// In as many requests as it takes. Bytes written: fewer than given if a later request fails.
    std::size_t write(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents);
    /// Writes pages that the kernel held, as many of them as can be written. A failure is also told by the next fsync
    /// of the file, or flush of one that writes it, whoever holds it.
    void writePages(OpenFileID id, std::int64_t offset, std::span<const std::byte> contents);

private:
    void readOn(OpenFile& file, const Node& node, std::int64_t offset, std::size_t size);

    OpenFiles& files_;
    VolumeHandles& handles_;
    Contents& contents_;
};

} // namespace fusehost
