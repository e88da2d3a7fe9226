#pragma once

#include "hosts/fuse/tree/Freshness.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/VolumeHandles.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace fusehost {

/// What files hold: bytes read and written, in as many requests as it takes, and what a change of them makes untrue.
/// Failures are KernelErrors.
class Contents {
public:
    /// `requestSize` is the most bytes that one request carries.
    Contents(Nodes& nodes, VolumeHandles& handles, Freshness& freshness, std::size_t requestSize);

    /// Fills `into` up to the end of the file. An error on the way is an error of the whole. Bytes read.
    std::size_t read(Node& node, std::int64_t offset, std::span<std::byte> into);
    /// The same where no size tells the end.
    std::size_t readToEnd(Node& node, std::int64_t offset, std::span<std::byte> into);
    /// Writes all of `contents`, which one request can carry.
    void write(Node& node, std::int64_t offset, std::span<const std::byte> contents);
    /// Adds zeros up to `size` bytes, which are more than the file has.
    void grow(Node& node, std::uint64_t size);
    /// Sets the size to 0. The attributes after that.
    fskit::FSItemAttributes makeEmpty(Node& node);
    /// The same by creating the file once more: the helper does not make safe what it creates. The size is to be
    /// something else soon.
    void makeAnew(Node& node);

    /// The file is about to change: what is known of it, or was read ahead, is true no more.
    void noteChange(Node& node);

    /// The part of `contents` from `start` on that goes in one request.
    std::span<const std::byte> piece(std::span<const std::byte> contents, std::size_t start) const;

    std::size_t requestSize() const { return requestSize_; }

private:
    std::size_t readUntil(Node& node, std::uint64_t end, std::int64_t offset, std::span<std::byte> into);

    Nodes& nodes_;
    VolumeHandles& handles_;
    Freshness& freshness_;
    const std::size_t requestSize_;
};

} // namespace fusehost
