#include "PlayedKernel.h"

#include "hosts/fuse/KernelRequest.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <unistd.h>

namespace fusehosttests {
namespace {

fusehost::KernelRequest requestOf(std::string_view bytes) {
    fusehost::KernelRequest request;
    request.memory.reset(std::malloc(bytes.size() + 1));
    std::memcpy(request.memory.get(), bytes.data(), bytes.size());
    request.size = bytes.size();
    return request;
}

std::string header(std::uint32_t opcode) {
    fuse_in_header header{};
    header.opcode = opcode;
    header.unique = 0x123456789abcdef0;
    header.pid = 4711;
    return bytesOf(header);
}

TEST(KernelRequest, tellsWhatItIs) {
    const fusehost::KernelRequest request = requestOf(header(FUSE_FLUSH) + "body");
    EXPECT_EQ(request.unique(), 0x123456789abcdef0U);
    EXPECT_EQ(request.opcode(), static_cast<std::uint32_t>(FUSE_FLUSH));
    EXPECT_EQ(request.thread(), 4711U);
    EXPECT_TRUE(request.isFlush());
    EXPECT_FALSE(request.isInterrupt());
}

TEST(KernelRequest, anInterruptTellsWhatItIsAbout) {
    const fusehost::KernelRequest request = requestOf(header(FUSE_INTERRUPT) + bytesOf(fuse_interrupt_in{42}));
    EXPECT_TRUE(request.isInterrupt());
    EXPECT_FALSE(request.isFlush());
    EXPECT_EQ(request.interruptedUnique(), 42U);
}

TEST(KernelRequest, thatIsCutShortIsAboutNothing) {
    EXPECT_EQ(requestOf(header(FUSE_INTERRUPT) + "1234567").interruptedUnique(), 0U);
    const fusehost::KernelRequest cut = requestOf(header(FUSE_INTERRUPT).substr(0, sizeof(fuse_in_header) - 1));
    EXPECT_EQ(cut.unique(), 0U);
    EXPECT_EQ(cut.thread(), 0U);
    EXPECT_FALSE(cut.isInterrupt());
}

TEST(KernelRequest, thatHoldsNothingIsNothing) {
    const fusehost::KernelRequest none;
    EXPECT_EQ(none.unique(), 0U);
    EXPECT_EQ(none.opcode(), 0U);
    EXPECT_EQ(none.interruptedUnique(), 0U);
}

TEST(ReplyErrorDirectly, writesTheHeaderThatTheKernelReads) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fusehost::replyErrorDirectly(ends[1], 42, EINTR);
    close(ends[1]);
    std::string bytes(64, '\0');
    const ssize_t got = read(ends[0], bytes.data(), bytes.size());
    close(ends[0]);
    ASSERT_EQ(got, static_cast<ssize_t>(sizeof(fuse_out_header)));
    const auto written = fromBytes<fuse_out_header>(bytes);
    EXPECT_EQ(written.len, sizeof(fuse_out_header));
    EXPECT_EQ(written.error, -EINTR);
    EXPECT_EQ(written.unique, 42U);
}

} // namespace
} // namespace fusehosttests
