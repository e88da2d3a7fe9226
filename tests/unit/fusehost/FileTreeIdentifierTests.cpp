#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

/// Three files whose paths have one identifier, under which the volume keeps what is open.
class FileTreeIdentifiers : public FileTreeTest {
protected:
    void SetUp() override {
        for (const char* path : {"/a", "/b", "/c"}) {
            volume->identifiers[path] = 4711;
            served.put(path, std::string(path).substr(1) + "0123456789");
        }
    }
};

TEST_F(FileTreeIdentifiers, whatIsWrittenToOneFileNeverLandsInAnother) {
    const OpenFileID a = open("/a", O_RDWR);
    const OpenFileID b = open("/b", O_RDWR);
    const OpenFileID c = open("/c", O_RDWR);
    for (int round = 1; round <= 3; ++round) {
        write(a, round, "A");
        write(b, round, "B");
        write(c, round, "C");
        EXPECT_EQ(read(a, round, 1), "A");
        EXPECT_EQ(read(b, round, 1), "B");
    }
    for (const OpenFileID file : {a, b, c})
        EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "aAAA3456789");
    EXPECT_EQ(served.bytes("/b"), "bBBB3456789");
    EXPECT_EQ(served.bytes("/c"), "cCCC3456789");
}

TEST_F(FileTreeIdentifiers, eachFileReadsItsOwnBytes) {
    const OpenFileID a = open("/a", O_RDONLY);
    const OpenFileID b = open("/b", O_RDONLY);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(read(a), "a0123456789");
        EXPECT_EQ(read(b), "b0123456789");
    }
}

TEST_F(FileTreeIdentifiers, atMostOneOfThemIsOpenAtATime) {
    const OpenFileID a = open("/a", O_RDONLY);
    const OpenFileID b = open("/b", O_RDONLY);
    EXPECT_EQ(served.openHandles(), 1U);
    served.takeRequests();
    read(b, 0, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("read /b 0+4"));
    read(a, 0, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /b", "open read /a", "read /a 0+4"));
    close(b);
    EXPECT_THAT(served.takeRequests(), IsEmpty()) << "nothing of this file was open any more";
    read(a, 0, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("read /a 0+4"));
}

TEST_F(FileTreeIdentifiers, aHandleThatWaitsToBeGivenBackIsNotTakenForTheOtherFiles) {
    const OpenFileID a = open("/a", O_RDWR);
    tree().release(tree().open(node("/b"), O_RDONLY));
    EXPECT_TRUE(tree().isPending());
    EXPECT_EQ(read(a), "a0123456789");
    EXPECT_FALSE(tree().isPending());
    served.takeRequests();
    idle();
    EXPECT_EQ(read(a), "a0123456789");
    EXPECT_EQ(served.openHandles(), 1U) << "it was not given back in the other's place";
}

TEST_F(FileTreeIdentifiers, whatIsReadAheadOfOneFileIsNotReadFromTheOther) {
    const OpenFileID a = open("/a", O_RDONLY);
    const OpenFileID b = open("/b", O_RDONLY);
    for (std::int64_t at = 0; at < 10; at += 2) {
        EXPECT_EQ(read(a, at, 2), std::string("a0123456789").substr(static_cast<std::size_t>(at), 2));
        EXPECT_EQ(read(b, at, 2), std::string("b0123456789").substr(static_cast<std::size_t>(at), 2));
    }
}

TEST_F(FileTreeIdentifiers, fsyncReachesAFileThatHasGivenWay) {
    const OpenFileID a = open("/a", O_RDWR);
    const OpenFileID b = open("/b", O_RDWR);
    write(a, 0, "A");
    write(b, 0, "B");
    served.takeRequests();
    tree().synchronize(a);
    EXPECT_THAT(served.takeRequests(), testing::Contains("flush /a"));
    tree().synchronize(b);
    EXPECT_THAT(served.takeRequests(), testing::Contains("flush /b"));
}

TEST_F(FileTreeIdentifiers, theErrorOfGivingAHandleBackIsToldToTheFileThatItBelongsTo) {
    const OpenFileID a = open("/a", O_WRONLY);
    write(a, 0, "A");
    served.before = refuseOnce("release /a", posixErrno::EDQUOT_);
    const OpenFileID b = open("/b", O_WRONLY);
    write(b, 0, "B");
    EXPECT_EQ(close(b), 0);
    EXPECT_EQ(close(a), EDQUOT);
}

TEST_F(FileTreeIdentifiers, removingOneFileLeavesTheOthersAlone) {
    const OpenFileID a = open("/a", O_RDWR);
    write(a, 0, "A");
    served.before = refuseOnce("release /a", posixErrno::EDQUOT_);
    remove("/b");
    EXPECT_FALSE(served.has("/b"));
    write(a, 1, "A");
    EXPECT_EQ(close(a), EDQUOT);
    EXPECT_EQ(served.bytes("/a"), "AA123456789");
}

TEST_F(FileTreeIdentifiers, renamingAndResizingOneFileLeaveTheOthersAlone) {
    const OpenFileID a = open("/a", O_RDWR);
    write(a, 0, "A");
    rename("/b", "/new");
    truncate("/c", 3);
    EXPECT_EQ(read(a), "A0123456789");
    write(a, 1, "A");
    EXPECT_EQ(served.bytes("/a"), "AA123456789");
    EXPECT_EQ(served.bytes("/new"), "b0123456789");
    EXPECT_EQ(served.bytes("/c"), "c01");
}

TEST_F(FileTreeIdentifiers, aFileThatIsRenamedOntoASharedIdentifierIsKeptApart) {
    served.put("/d", "d0123456789");
    const OpenFileID a = open("/a", O_RDWR);
    const OpenFileID d = open("/d", O_RDWR);
    rename("/d", "/b");
    for (int round = 0; round < 2; ++round) {
        write(a, 0, "A");
        write(d, 0, "D");
    }
    EXPECT_EQ(served.bytes("/a"), "A0123456789");
    EXPECT_EQ(served.bytes("/b"), "D0123456789");
}

TEST_F(FileTreeIdentifiers, aRemovedFileThatLivesOnIsKeptApart) {
    const OpenFileID a = open("/a", O_RDWR);
    const OpenFileID b = open("/b", O_RDWR);
    remove("/a");
    write(b, 0, "B");
    write(a, 0, "A");
    EXPECT_EQ(read(a), "A0123456789");
    EXPECT_EQ(read(b), "B0123456789");
    EXPECT_EQ(close(a), 0);
    write(b, 1, "B");
    EXPECT_EQ(close(b), 0);
    EXPECT_EQ(served.bytes("/b"), "BB123456789");
}

TEST_F(FileTreeIdentifiers, aFileReplacedBehindTheMountIsKeptApart) {
    const OpenFileID a = open("/a", O_RDWR);
    const OpenFileID b = open("/b", O_RDWR);
    served.put("/a", "new a");
    const OpenFileID again = open("/a", O_RDWR);
    EXPECT_EQ(read(again), "new a");
    EXPECT_EQ(read(b), "b0123456789");
    write(again, 0, "N");
    EXPECT_EQ(served.bytes("/a"), "New a");
    EXPECT_EQ(served.bytes("/b"), "b0123456789");
    close(a);
}

} // namespace
} // namespace fusehosttests
