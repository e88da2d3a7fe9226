#include "foundation/ByteBuffer.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace foundation {

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

ByteBuffer& ByteBuffer::operator=(ByteBuffer&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
    return *this;
}

ByteBuffer::~ByteBuffer() {
    std::free(data_);
}

void ByteBuffer::reserve(std::size_t capacity) {
    if (capacity <= capacity_ && data_ != nullptr)
        return;
    // realloc and not new: large blocks grow by moving page tables instead of bytes.
    void* grown = std::realloc(data_, capacity + padding);
    if (grown == nullptr)
        throw std::bad_alloc();
    data_ = static_cast<char*>(grown);
    capacity_ = capacity;
    std::memset(data_ + capacity_, 0, padding);
}

void ByteBuffer::append(std::string_view bytes) {
    if (bytes.empty())
        return;
    if (size_ + bytes.size() > capacity_)
        reserve(size_ + bytes.size() + capacity_ / 2);
    std::memcpy(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

} // namespace foundation
