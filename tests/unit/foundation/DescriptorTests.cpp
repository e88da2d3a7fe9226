#include "foundation/Descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <type_traits>
#include <unistd.h>

namespace {

using foundation::Descriptor;
using foundation::openPipe;

bool isOpenInProcess(int number) {
    return ::fcntl(number, F_GETFD) >= 0;
}

Descriptor openNull() {
    return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

// While it lives, the process can open nothing more.
class NoMoreDescriptors {
public:
    NoMoreDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        rlimit none = before_;
        none.rlim_cur = 0;
        ::setrlimit(RLIMIT_NOFILE, &none);
    }

    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

    ~NoMoreDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

static_assert(!std::is_copy_constructible_v<Descriptor> && !std::is_copy_assignable_v<Descriptor>);
static_assert(std::is_nothrow_move_constructible_v<Descriptor> && std::is_nothrow_move_assignable_v<Descriptor>);

TEST(DescriptorTest, ownsNothingAtFirst) {
    Descriptor nothing;
    EXPECT_FALSE(nothing.isOpen());
    EXPECT_EQ(nothing.number(), -1);
    EXPECT_TRUE(nothing.close());
}

TEST(DescriptorTest, ownsNothingAfterAFailedCall) {
    const Descriptor missing(::open("/dev/null/nothing", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(missing.isOpen());
}

TEST(DescriptorTest, anyNegativeNumberIsNothing) {
    EXPECT_EQ(Descriptor(-ENOENT).number(), -1);
}

TEST(DescriptorTest, closesAtTheEndOfItsLife) {
    int number = -1;
    {
        const Descriptor null = openNull();
        number = null.number();
        EXPECT_TRUE(isOpenInProcess(number));
    }
    EXPECT_FALSE(isOpenInProcess(number));
}

TEST(DescriptorTest, movesWithoutClosing) {
    Descriptor from = openNull();
    const int number = from.number();
    const Descriptor to(std::move(from));
    EXPECT_FALSE(from.isOpen()); // NOLINT(bugprone-use-after-move): what is left is promised
    EXPECT_EQ(to.number(), number);
    EXPECT_TRUE(isOpenInProcess(number));
}

TEST(DescriptorTest, closesWhatItOwnedWhenAnotherIsMovedIn) {
    Descriptor held = openNull();
    Descriptor next = openNull();
    const int closed = held.number();
    const int kept = next.number();
    held = std::move(next);
    EXPECT_FALSE(isOpenInProcess(closed));
    EXPECT_TRUE(isOpenInProcess(kept));
    EXPECT_EQ(held.number(), kept);
}

TEST(DescriptorTest, staysOpenWhenMovedIntoItself) {
    Descriptor held = openNull();
    Descriptor& same = held;
    held = std::move(same);
    EXPECT_TRUE(isOpenInProcess(held.number()));
}

TEST(DescriptorTest, givesItOutOfHand) {
    Descriptor held = openNull();
    const Descriptor taker(held.release());
    EXPECT_FALSE(held.isOpen());
    EXPECT_TRUE(isOpenInProcess(taker.number()));
}

TEST(DescriptorTest, closesOnceOnly) {
    Descriptor held = openNull();
    const int number = held.number();
    EXPECT_TRUE(held.close());
    EXPECT_FALSE(held.isOpen());
    const Descriptor sameNumber = openNull();
    EXPECT_EQ(sameNumber.number(), number);
    EXPECT_TRUE(held.close());
    held.reset();
    EXPECT_TRUE(isOpenInProcess(number));
}

TEST(DescriptorTest, tellsOfAFailedClose) {
    Descriptor gone = openNull();
    ::close(gone.number());
    EXPECT_FALSE(gone.close());
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(gone.isOpen());
}

TEST(DescriptorTest, leavesErrnoAsItIsAtTheEndOfItsLife) {
    Descriptor gone = openNull();
    ::close(gone.number());
    errno = ENOSPC;
    gone.reset();
    EXPECT_EQ(errno, ENOSPC);
}

TEST(PipeEndsTest, carryBytesAndAreCloseOnExec) {
    const auto pipe = openPipe();
    ASSERT_TRUE(pipe.reading.isOpen() && pipe.writing.isOpen());
    EXPECT_EQ(::fcntl(pipe.reading.number(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(pipe.writing.number(), F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(::write(pipe.writing.number(), "x", 1), 1);
    char byte = 0;
    ASSERT_EQ(::read(pipe.reading.number(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST(PipeEndsTest, areNothingWhereTheProcessCanHaveNoMore) {
    const NoMoreDescriptors full;
    const auto pipe = openPipe();
    const int error = errno;
    EXPECT_FALSE(pipe.reading.isOpen() || pipe.writing.isOpen());
    EXPECT_EQ(error, EMFILE);
}

} // namespace
