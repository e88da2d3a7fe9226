#include "foundation/PosixErrno.h"
#include "hosts/fuse/calls/KernelErrno.h"
#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/kernel/KernelRequest.h"
#include "hosts/fuse/tree/AttributeMap.h"
#include "hosts/fuse/tree/ByteSpool.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using foundation::NSError;
using fskit::FSItemAttributes;
using fskit::FSItemType;

FSItemAttributes record(FSItemType type, std::uint32_t mode) {
    FSItemAttributes attributes;
    attributes.setType(type);
    attributes.setMode(mode);
    attributes.setLinkCount(3);
    attributes.setUid(10);
    attributes.setGid(20);
    attributes.setSize(5000);
    attributes.setAllocSize(8192);
    attributes.setFileID(static_cast<fskit::FSItemID>(0xFFFFFFFFFFFFFFF0u));
    attributes.setAccessTime({1, 2});
    attributes.setModifyTime({3, 4});
    attributes.setChangeTime({5, 6});
    return attributes;
}

TEST(AttributeMap, showsWhatTheVolumeReports) {
    const struct stat shown = fusehost::AttributeMap({}).map(record(FSItemType::file, 0100640));
    EXPECT_EQ(shown.st_mode, mode_t{S_IFREG | 0640});
    EXPECT_EQ(shown.st_ino, 0xFFFFFFFFFFFFFFF0u);
    EXPECT_EQ(shown.st_nlink, 3U);
    EXPECT_EQ(shown.st_uid, 10U);
    EXPECT_EQ(shown.st_gid, 20U);
    EXPECT_EQ(shown.st_size, 5000);
    EXPECT_EQ(shown.st_blocks, 16);
    EXPECT_EQ(shown.st_blksize, 4096);
    EXPECT_EQ(shown.st_atim.tv_sec, 1);
    EXPECT_EQ(shown.st_atim.tv_nsec, 2);
    EXPECT_EQ(shown.st_mtim.tv_sec, 3);
    EXPECT_EQ(shown.st_mtim.tv_nsec, 4);
    EXPECT_EQ(shown.st_ctim.tv_sec, 5);
    EXPECT_EQ(shown.st_ctim.tv_nsec, 6);
}

TEST(AttributeMap, takesTheMasksFromFullPermissions) {
    fusehost::MountOptions options;
    options.fileMask = 0022;
    options.directoryMask = 0077;
    const fusehost::AttributeMap map(options);
    EXPECT_EQ(map.map(record(FSItemType::file, 0100644)).st_mode, mode_t{S_IFREG | 0755});
    EXPECT_EQ(map.map(record(FSItemType::directory, 0040755)).st_mode, mode_t{S_IFDIR | 0700});
}

TEST(AttributeMap, aMaskForFilesLeavesDirectoriesAlone) {
    fusehost::MountOptions options;
    options.fileMask = 0777;
    EXPECT_EQ(fusehost::AttributeMap(options).map(record(FSItemType::directory, 0040711)).st_mode,
              mode_t{S_IFDIR | 0711});
}

TEST(AttributeMap, showsTheOwnerAskedFor) {
    fusehost::MountOptions options;
    options.uid = 0;
    options.gid = 77;
    const struct stat shown = fusehost::AttributeMap(options).map(record(FSItemType::file, 0644));
    EXPECT_EQ(shown.st_uid, 0U);
    EXPECT_EQ(shown.st_gid, 77U);
}

TEST(AttributeMap, knowsTheBitsOfEveryType) {
    EXPECT_EQ(fusehost::typeBits(FSItemType::file), mode_t{S_IFREG});
    EXPECT_EQ(fusehost::typeBits(FSItemType::directory), mode_t{S_IFDIR});
    EXPECT_EQ(fusehost::typeBits(FSItemType::symlink), mode_t{S_IFLNK});
    EXPECT_EQ(fusehost::typeBits(FSItemType::fifo), mode_t{S_IFIFO});
    EXPECT_EQ(fusehost::typeBits(FSItemType::charDevice), mode_t{S_IFCHR});
    EXPECT_EQ(fusehost::typeBits(FSItemType::blockDevice), mode_t{S_IFBLK});
    EXPECT_EQ(fusehost::typeBits(FSItemType::socket), mode_t{S_IFSOCK});
    EXPECT_EQ(fusehost::typeBits(FSItemType::unknown), mode_t{S_IFREG});
}

TEST(KernelErrno, translatesTheNumbersThatDiffer) {
    namespace posixErrno = foundation::posixErrno;
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(posixErrno::ENOENT_)), ENOENT);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(posixErrno::ENOTEMPTY_)), ENOTEMPTY);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(posixErrno::ENOTSUP_)), EOPNOTSUPP);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(posixErrno::EAGAIN_)), EAGAIN);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(posixErrno::ENAMETOOLONG_)), ENAMETOOLONG);
}

TEST(KernelErrno, isEIOForEverythingThatIsNoErrno) {
    EXPECT_EQ(fusehost::kernelErrno(NSError{"com.example", 2, std::nullopt, ""}), EIO);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(0)), EIO) << "success is no error";
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(-2)), EIO);
    EXPECT_EQ(fusehost::kernelErrno(NSError::posix(12345)), EIO);
    NSError large = NSError::posix(2);
    large.code += std::int64_t{1} << 32; // cut to 32 bits this would be ENOENT
    EXPECT_EQ(fusehost::kernelErrno(large), EIO);
}

TEST(KernelErrno, anErrorSaysWhatItIs) {
    const fusehost::KernelError error(ENOSPC);
    EXPECT_EQ(error.number(), ENOSPC);
    EXPECT_STREQ(error.what(), std::strerror(ENOSPC));
}

std::vector<std::byte> pattern(std::size_t count, unsigned start) {
    std::vector<std::byte> bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::byte>((start + i) * 31 % 251);
    return bytes;
}

void expectHolds(fusehost::ByteSpool& spool, const std::vector<std::byte>& all) {
    ASSERT_EQ(spool.size(), all.size());
    for (const std::size_t at : {std::size_t{0}, all.size() / 3, all.size() - 1}) {
        std::vector<std::byte> part(std::min<std::size_t>(1000, all.size() - at));
        spool.copy(at, part);
        EXPECT_TRUE(std::equal(part.begin(), part.end(), all.begin() + static_cast<std::ptrdiff_t>(at))) << at;
    }
}

TEST(ByteSpool, givesBackWhatWasAppended) {
    const fusehost::TemporaryFolder folder;
    fusehost::ByteSpool spool(folder);
    EXPECT_EQ(spool.size(), 0U);
    const auto all = pattern(5000, 0);
    spool.append(std::span(all).first(1));
    spool.append(std::span(all).subspan(1, 0));
    spool.append(std::span(all).subspan(1));
    expectHolds(spool, all);
}

TEST(ByteSpool, givesBackWhatNoLongerFitsInMemory) {
    const fusehost::TemporaryFolder folder;
    fusehost::ByteSpool spool(folder);
    const auto all = pattern(18 * 1024 * 1024 + 17, 5);
    const std::size_t block = 7 * 1024 * 1024;
    for (std::size_t at = 0; at < all.size(); at += block)
        spool.append(std::span(all).subspan(at, std::min(block, all.size() - at)));
    expectHolds(spool, all);
}

// What it holds may be in no other place by then.
TEST(ByteSpool, tellsThatThereIsNoRoomForWhatItShouldHold) {
    const fusehost::TemporaryFolder folder;
    fusehost::ByteSpool spool(folder);
    const auto all = pattern(20 * 1024 * 1024, 3);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1024 * 1024, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int error = 0;
    try {
        spool.append(all);
    } catch (const fusehost::KernelError& failure) {
        error = failure.number();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(error, EFBIG);
}

TEST(ByteSpool, takesMoreAfterItWasReadFrom) {
    const fusehost::TemporaryFolder folder;
    fusehost::ByteSpool spool(folder);
    const auto all = pattern(20 * 1024 * 1024, 9);
    const std::size_t half = 17 * 1024 * 1024; // in the file already
    spool.append(std::span(all).first(half));
    std::vector<std::byte> part(10);
    spool.copy(3, part);
    spool.append(std::span(all).subspan(half));
    expectHolds(spool, all);
}

fusehost::KernelRequest requestOf(std::uint32_t opcode, const void* body = nullptr, std::size_t bodySize = 0) {
    fuse_in_header header{};
    header.opcode = opcode;
    header.unique = 0x1234567890;
    header.pid = 77;
    fusehost::KernelRequest request;
    request.size = sizeof header + bodySize;
    request.memory.reset(std::malloc(request.size));
    std::memcpy(request.memory.get(), &header, sizeof header);
    if (bodySize > 0)
        std::memcpy(static_cast<char*>(request.memory.get()) + sizeof header, body, bodySize);
    return request;
}

TEST(KernelRequest, tellsItsHeader) {
    const auto request = requestOf(FUSE_FLUSH);
    EXPECT_EQ(request.unique(), 0x1234567890U);
    EXPECT_EQ(request.opcode(), std::uint32_t{FUSE_FLUSH});
    EXPECT_EQ(request.thread(), 77U);
    EXPECT_TRUE(request.isFlush());
    EXPECT_FALSE(request.isInterrupt());
}

TEST(KernelRequest, tellsWhatAnInterruptIsAbout) {
    fuse_interrupt_in body{};
    body.unique = 42;
    const auto request = requestOf(FUSE_INTERRUPT, &body, sizeof body);
    EXPECT_TRUE(request.isInterrupt());
    EXPECT_FALSE(request.isFlush());
    EXPECT_EQ(request.interruptedUnique(), 42U);
}

TEST(KernelRequest, readsNothingBeyondItsEnd) {
    EXPECT_EQ(fusehost::KernelRequest().unique(), 0U);
    EXPECT_FALSE(fusehost::KernelRequest().isInterrupt());
    auto cut = requestOf(FUSE_INTERRUPT);
    EXPECT_EQ(cut.interruptedUnique(), 0U);
    cut.size = 8;
    EXPECT_EQ(cut.opcode(), 0U);
}

TEST(KernelRequest, anErrorIsAnsweredAsOneHeader) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    fusehost::replyErrorDirectly(ends[0], 99, EINTR);
    fuse_out_header answer{};
    EXPECT_EQ(::read(ends[1], &answer, sizeof answer), static_cast<ssize_t>(sizeof answer));
    EXPECT_EQ(answer.len, sizeof answer);
    EXPECT_EQ(answer.error, -EINTR);
    EXPECT_EQ(answer.unique, 99U);
    ::close(ends[0]);
    ::close(ends[1]);
}

} // namespace
