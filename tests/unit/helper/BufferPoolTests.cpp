#include "helper/BufferPool.h"

#include <gtest/gtest.h>

#include <vector>

namespace kemvi {
namespace {

TEST(BufferPool, handsOutTheMemoryThatCameBackEmpty) {
    const auto pool = std::make_shared<BufferPool>();
    auto buffer = pool->take();
    buffer->append("text");
    const char* const memory = buffer->data();
    buffer.reset();
    buffer = pool->take();
    EXPECT_EQ(buffer->size(), 0U);
    EXPECT_EQ(buffer->data(), memory);
}

TEST(BufferPool, handsOutDifferentBuffersAtOneTime) {
    const auto pool = std::make_shared<BufferPool>();
    EXPECT_NE(pool->take(), pool->take());
    std::vector<std::shared_ptr<foundation::ByteBuffer>> many;
    for (int i = 0; i < 20; ++i)
        many.push_back(pool->take());
    for (std::size_t i = 1; i < many.size(); ++i)
        EXPECT_NE(many[i - 1], many[i]);
}

TEST(BufferPool, doesNotKeepGiants) {
    const auto pool = std::make_shared<BufferPool>();
    pool->take()->reserve(std::size_t{9} << 20);
    EXPECT_EQ(pool->take()->capacity(), 0U);
}

TEST(BufferPool, keepsNoMoreThanFour) {
    const auto pool = std::make_shared<BufferPool>();
    const auto takeSix = [&] {
        std::vector<std::shared_ptr<foundation::ByteBuffer>> buffers;
        for (int i = 0; i < 6; ++i)
            buffers.push_back(pool->take());
        return buffers;
    };
    for (const auto& buffer : takeSix())
        buffer->append("text");
    std::size_t used = 0;
    for (const auto& buffer : takeSix())
        used += buffer->capacity() > 0 ? 1 : 0;
    EXPECT_EQ(used, 4U);
}

TEST(BufferPool, mayGoBeforeItsBuffers) {
    auto pool = std::make_shared<BufferPool>();
    const auto buffer = pool->take();
    pool.reset();
    buffer->append("still there");
    EXPECT_EQ(buffer->view(), "still there");
}

} // namespace
} // namespace kemvi
