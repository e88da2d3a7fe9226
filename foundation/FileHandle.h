#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/Descriptor.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>

namespace foundation {

/// A stream over one descriptor, which it owns. Reads go to the platform in large pieces; what was read beyond the
/// bytes asked for stays here, in order.
///
/// Thread-safety: one thread may read while another writes, and any thread may close at any time. The descriptor
/// number is given back to the platform only when no call is using it, so it can never be reused under a running call.
class FileHandle {
public:
    /// A handle that is closed.
    FileHandle() = default;
    /// Takes over `descriptor`; one that owns nothing makes a closed handle.
    explicit FileHandle(Descriptor descriptor);
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();

    bool isOpen() const;

    /// The descriptor's number, or -1 when closed; for handing to a child process.
    int fileDescriptor() const;

    /// Closes the handle: later calls see a closed handle, a call that is running keeps the descriptor until it
    /// returns. False if it was closed already.
    bool close();

    /// Reads up to and including the next byte 10 into `line`, without that byte. False if the stream ended (or the
    /// handle is closed) before one came; the bytes gathered are then lost. Blocks as long as it takes.
    bool readLine(ByteBuffer& line);

    /// The next byte, or nothing at the end of the stream. Blocks.
    std::optional<std::byte> readByte() {
        if (heldStart_ == held_.size() && !refill())
            return std::nullopt;
        return static_cast<std::byte>(held_.data()[heldStart_++]);
    }

    /// Writes the pieces one after another with one call to the platform; if the platform takes only a part, the rest
    /// is written by further calls. False if they could not be written whole (closed, or nobody reads any more).
    bool write(std::span<const std::string_view> pieces);
    bool write(std::string_view bytes);

    /// The same for a stream whose reader answers on another one: gives up, also in the middle, when `answers` has
    /// ended, since a reader that answers no more may also read no more. False then. What had arrived on `answers`
    /// before its end stays there to be read.
    bool writeUnlessEnded(std::span<const std::string_view> pieces, const FileHandle& answers);

private:
    class Stream;

    std::shared_ptr<Stream> use() const;
    static bool writeAll(const Stream& stream, std::span<const std::string_view> pieces, const Stream* answers);
    bool refill();
    bool takeHeldLine(ByteBuffer& line);

    std::atomic<bool> ended_{false}; // a read has met the end of the stream
    mutable std::mutex lock_;        // guards stream_ alone
    std::shared_ptr<Stream> stream_; // none once closed; whoever uses it keeps it open
    ByteBuffer
        held_; // bytes read and not yet handed out: those from heldStart_ on; touched by the reading thread alone
    std::size_t heldStart_ = 0;
};

} // namespace foundation
