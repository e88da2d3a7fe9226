#include "FileTreeTest.h"

#include <limits>

namespace fusehosttests {
namespace {

class FileTreeSize : public FileTreeTest {};

TEST_F(FileTreeSize, shrinkingKeepsTheHead) {
    served.put("/a", "0123456789");
    EXPECT_EQ(truncate("/a", 4).st_size, 4);
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeSize, shrinkingToNothingIsTheVolumesOwn) {
    served.put("/a", "0123456789");
    node("/a");
    served.takeRequests();
    EXPECT_EQ(truncate("/a", 0).st_size, 0);
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("getattr /a", "open write,create,truncate /a", "flush /a", "release /a", "getattr /a"));
    EXPECT_EQ(served.bytes("/a"), "");
}

TEST_F(FileTreeSize, growingWritesOneByteAtTheEnd) {
    served.put("/a", "0123456789");
    node("/a");
    served.takeRequests();
    EXPECT_EQ(truncate("/a", 20).st_size, 20);
    EXPECT_EQ(served.bytes("/a"), "0123456789" + std::string(10, '\0'));
    for (const std::string& request : served.takeRequests())
        EXPECT_THAT(request, testing::Not(testing::AnyOf(testing::StartsWith("read"), testing::HasSubstr("truncate"))));
}

TEST_F(FileTreeSize, sameSizeChangesNothing) {
    served.put("/a", "0123");
    EXPECT_EQ(truncate("/a", 4).st_size, 4);
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeSize, aFileThatGrewSinceItWasLookedUpKeepsItsBytes) {
    served.put("/a", "01");
    const NodeID file = node("/a");
    served.append("/a", "23456789");
    fusehost::AttributeChange change;
    change.size = 8;
    EXPECT_EQ(tree().setAttributes(file, change).st_size, 8);
    EXPECT_EQ(served.bytes("/a"), "01234567");
}

TEST_F(FileTreeSize, growingAFileThatGrewKeepsItsBytes) {
    served.put("/a", "01");
    const NodeID file = node("/a");
    served.append("/a", "23456789");
    fusehost::AttributeChange change;
    change.size = 12;
    EXPECT_EQ(tree().setAttributes(file, change).st_size, 12);
    EXPECT_EQ(served.bytes("/a"), "0123456789" + std::string(2, '\0'));
}

TEST_F(FileTreeSize, aFailedGrowLeavesNothingOpen) {
    served.put("/a", "0");
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(errnoOf([&] { truncate("/a", 100); }), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_EQ(served.bytes("/a"), "0");
}

TEST_F(FileTreeSize, anOpenFileGoesOnAfterItWasTruncated) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123456789");
    truncate("/a", 3);
    EXPECT_EQ(read(file), "012");
    write(file, 3, "x");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "012x");
}

TEST_F(FileTreeSize, theFileThatHasTheNameIsTheOneThatIsShrunk) {
    served.put("/a", "OLD CONTENTS");
    const OpenFileID reader = open("/a", O_RDONLY);
    EXPECT_EQ(read(reader, 0, 3), "OLD");
    served.put("/a", "new contents");
    truncate("/a", 8);
    EXPECT_EQ(served.bytes("/a"), "new cont");
}

TEST_F(FileTreeSize, theFileThatHasTheNameIsTheOneThatGrows) {
    served.put("/a", "old");
    const OpenFileID writer = open("/a", O_WRONLY);
    write(writer, 0, "o");
    served.put("/a", "new!");
    EXPECT_EQ(truncate("/a", 6).st_size, 6);
    EXPECT_EQ(served.bytes("/a"), std::string("new!\0\0", 6));
}

TEST_F(FileTreeSize, openingWithTruncateEmptiesTheFile) {
    served.put("/a", "0123456789");
    const OpenFileID file = open("/a", O_WRONLY | O_TRUNC);
    EXPECT_EQ(served.bytes("/a"), "");
    EXPECT_EQ(tree().getAttributes(node("/a")).st_size, 0);
    write(file, 0, "x");
    EXPECT_EQ(served.bytes("/a"), "x");
}

TEST_F(FileTreeSize, openingWithTruncateThatFailsIsReported) {
    served.put("/a", "0123456789");
    served.before = refuseAlways("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { open("/a", O_WRONLY | O_TRUNC); }), EACCES);
    EXPECT_EQ(served.bytes("/a"), "0123456789");
}

TEST_F(FileTreeSize, ofADirectoryIsEISDIR) {
    served.putDirectory("/d");
    EXPECT_EQ(errnoOf([&] { truncate("/d", 0); }), EISDIR);
}

TEST_F(FileTreeSize, beyondWhatAFileCanHoldIsEFBIG) {
    served.put("/a", "x");
    EXPECT_EQ(errnoOf([&] { truncate("/a", std::uint64_t{1} << 63); }), EFBIG);
    EXPECT_EQ(errnoOf([&] { truncate("/a", std::numeric_limits<std::uint64_t>::max()); }), EFBIG);
    EXPECT_EQ(served.bytes("/a"), "x");
}

TEST_F(FileTreeSize, ofAVanishedFileIsESTALE) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    served.erase("/a");
    fusehost::AttributeChange change;
    change.size = 2;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, change); }), ESTALE);
    EXPECT_FALSE(served.has("/a"));
}

TEST_F(FileTreeSize, changesComeInTheOrderSizeModeTime) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    served.takeRequests();
    fusehost::AttributeChange change;
    change.size = 0;
    change.mode = 0600;
    change.modifyTime = timespec{5, 500000000};
    const struct stat shown = tree().setAttributes(file, change);
    EXPECT_EQ(shown.st_mtim.tv_sec, 5);
    EXPECT_THAT(served.takeRequests(), ElementsAre("open write,create,truncate /a", "flush /a", "release /a",
                                                   "getattr /a", "chmod /a 600", "utimes /a 5.500000", "getattr /a"));
}

TEST_F(FileTreeSize, noModeBitButThePermissionsReachesTheHelper) {
    served.put("/a", "0123");
    fusehost::AttributeChange change;
    change.mode = 07755;
    tree().setAttributes(node("/a"), change);
    EXPECT_EQ(served.mode("/a"), 0755U);
    create("/b", O_RDWR, 07700);
    makeNode("/c", S_IFREG | 06711);
    makeDirectory("/d", 03700);
    EXPECT_EQ(served.mode("/b"), 0700U);
    EXPECT_EQ(served.mode("/c"), 0711U);
    EXPECT_EQ(served.mode("/d"), 0700U);
}

TEST_F(FileTreeSize, noChangeAtAllShowsTheFileAsItIs) {
    served.put("/a", "0123");
    EXPECT_EQ(tree().setAttributes(node("/a"), {}).st_size, 4);
}

TEST_F(FileTreeSize, chownToTheOwnerShownSucceedsAndAnyOtherIsEPERM) {
    served.put("/a", "");
    const NodeID file = node("/a");
    fusehost::AttributeChange same;
    same.uid = 1000;
    same.gid = 1000;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, same); }), 0);
    fusehost::AttributeChange other;
    other.uid = 0;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, other); }), EPERM);
    other.uid.reset();
    other.gid = 5;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, other); }), EPERM);
}

TEST_F(FileTreeSize, aChownRightAfterAnotherChangeAsksNothing) {
    served.put("/a", "");
    const NodeID file = node("/a");
    fusehost::AttributeChange time;
    time.modifyTime = timespec{5, 0};
    tree().setAttributes(file, time);
    served.takeRequests();
    fusehost::AttributeChange owner;
    owner.uid = 1000;
    owner.gid = 1000;
    EXPECT_EQ(tree().getAttributes(file).st_mtim.tv_sec, 5) << "the kernel looks before it asks";
    EXPECT_EQ(tree().setAttributes(file, owner).st_mtim.tv_sec, 5);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(FileTreeSize, aChownAfterAWriteShowsWhatWasWritten) {
    const OpenFileID file = create("/a");
    const NodeID id = node("/a");
    write(file, 0, "0123");
    EXPECT_EQ(tree().setAttributes(id, {}).st_size, 4);
    close(file);
}

TEST_F(FileTreeSize, aChownWithTimeoutsOfZeroAsksAnew) {
    options.attrTimeout = fusehost::Seconds(0);
    served.put("/a", "");
    const NodeID file = node("/a");
    served.put("/a", "0123");
    EXPECT_EQ(tree().setAttributes(file, {}).st_size, 4);
}

TEST_F(FileTreeSize, aChownThatIsRefusedChangesNothingElse) {
    served.put("/a", "0123");
    fusehost::AttributeChange change;
    change.uid = 0;
    change.size = 0;
    change.mode = 0600;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(node("/a"), change); }), EPERM);
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_EQ(served.mode("/a"), 0644U);
}

TEST_F(FileTreeSize, chownIsJudgedByTheOwnerThatTheOptionsShow) {
    options.uid = 7;
    served.put("/a", "");
    const NodeID file = node("/a");
    fusehost::AttributeChange change;
    change.uid = 7;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, change); }), 0);
    change.uid = 1000;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, change); }), EPERM);
}

TEST_F(FileTreeSize, aQuietMountLetsAnyChownPass) {
    options.quiet = true;
    served.put("/a", "");
    fusehost::AttributeChange change;
    change.uid = 0;
    EXPECT_EQ(tree().setAttributes(node("/a"), change).st_uid, 1000U);
}

} // namespace
} // namespace fusehosttests
