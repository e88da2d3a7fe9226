#pragma once

#include <cstddef>
#include <string_view>

namespace foundation {

/// A growable run of bytes that are not initialised on growth and always have `padding` readable bytes behind them, as
/// vector code that reads whole blocks needs. Not thread-safe.
class ByteBuffer {
public:
    static constexpr std::size_t padding = 64;

    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept;
    ByteBuffer& operator=(ByteBuffer&& other) noexcept;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer();

    char* data() { return data_; }

    const char* data() const { return data_; }

    std::size_t size() const { return size_; }

    std::size_t capacity() const { return capacity_; }

    std::string_view view() const { return {data_, size_}; }

    void clear() { size_ = 0; }

    /// Sets the size, which must not exceed the capacity; the bytes gained are whatever was written there before.
    void setSize(std::size_t size) { size_ = size; }

    /// Makes room for `capacity` bytes in all, keeping the contents. Throws std::bad_alloc.
    void reserve(std::size_t capacity);

    void append(std::string_view bytes);

private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace foundation
