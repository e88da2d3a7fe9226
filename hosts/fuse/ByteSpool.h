#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

namespace fusehost {

/// Bytes set aside for a moment: in memory while they are few, in an unnamed temporary file when they are many.
/// Not thread-safe. Throws KernelError (ENOSPC, EIO, ENOMEM) when there is no room.
class ByteSpool {
public:
    void append(std::span<const std::byte> bytes);

    /// Fills `into` with the bytes from `offset` on; they must have been appended.
    void copy(std::uint64_t offset, std::span<std::byte> into);

    /// Bytes appended so far.
    std::uint64_t size() const { return size_; }

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void moveToFile();

    std::vector<std::byte> memory_;
    std::unique_ptr<std::FILE, Close> file_;
    std::uint64_t size_ = 0;
};

} // namespace fusehost
