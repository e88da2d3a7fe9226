#include "helper/BufferPool.h"

namespace kemvi {
namespace {

// One buffer is at work in the exchange; the others are being looked at, or filled for the next, by threads that queue.
constexpr std::size_t mostSpare = 4;
// A rare giant, such as the listing of a huge directory, is not kept.
constexpr std::size_t mostCapacity = std::size_t{8} << 20;

} // namespace

std::shared_ptr<foundation::ByteBuffer> BufferPool::take() {
    std::unique_ptr<foundation::ByteBuffer> buffer;
    {
        std::lock_guard guard(lock_);
        if (!spare_.empty()) {
            buffer = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    if (!buffer)
        buffer = std::make_unique<foundation::ByteBuffer>();
    buffer->clear();
    return {buffer.release(), [pool = shared_from_this()](foundation::ByteBuffer* returned) {
                pool->giveBack(std::unique_ptr<foundation::ByteBuffer>(returned));
            }};
}

void BufferPool::giveBack(std::unique_ptr<foundation::ByteBuffer> buffer) noexcept {
    if (buffer->capacity() > mostCapacity)
        return;
    std::lock_guard guard(lock_);
    if (spare_.size() < mostSpare)
        spare_.push_back(std::move(buffer));
}

} // namespace kemvi
