#pragma once

#include "hosts/fuse/tree/TemporaryFolder.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fusehost {

/// Bytes set aside for a moment: in memory while they are few, in an unnamed temporary file when they are many.
/// Not thread-safe. Throws KernelError (ENOSPC, EIO, ENOMEM) when there is no room.
class ByteSpool {
public:
    /// The folder must live longer.
    explicit ByteSpool(const TemporaryFolder& folder) : folder_(folder) {}

    void append(std::span<const std::byte> bytes);

    /// Fills `into` with the bytes from `offset` on; they must have been appended.
    void copy(std::uint64_t offset, std::span<std::byte> into);

    /// Bytes appended so far.
    std::uint64_t size() const { return size_; }

private:
    void moveToFile();

    const TemporaryFolder& folder_;
    std::vector<std::byte> memory_;
    TemporaryFile file_;
    std::uint64_t size_ = 0;
};

} // namespace fusehost
