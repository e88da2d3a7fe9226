#pragma once

#include "foundation/ByteBuffer.h"

#include <memory>
#include <mutex>
#include <vector>

namespace kemvi {

/// Keeps the memory of lines and payloads between exchanges, so that steady traffic allocates nothing of its size. A
/// buffer comes back by itself when its last holder lets go, also after the pool's owner has gone. Thread-safe.
class BufferPool : public std::enable_shared_from_this<BufferPool> {
public:
    /// An empty buffer, with whatever capacity its last use left it.
    std::shared_ptr<foundation::ByteBuffer> take();

private:
    void giveBack(std::unique_ptr<foundation::ByteBuffer> buffer) noexcept;

    std::mutex lock_;
    std::vector<std::unique_ptr<foundation::ByteBuffer>> spare_;
};

} // namespace kemvi
