#include "FileTreeTest.h"

#include <functional>
#include <stdexcept>
#include <thread>

namespace fusehosttests {
namespace {

class FileTreeFiles : public FileTreeTest {
protected:
    /// A file "0011223344" of which two blocks of two bytes were read, so that the third is asked for.
    OpenFileID openAndReadAhead(int flags) {
        served.put("/a", "0011223344");
        const OpenFileID file = open("/a", flags);
        EXPECT_EQ(read(file, 0, 2), "00");
        EXPECT_EQ(read(file, 2, 2), "11");
        return file;
    }
};

TEST_F(FileTreeFiles, whatIsWrittenIsRead) {
    const OpenFileID file = create("/a");
    write(file, 0, "hello ");
    write(file, 6, "world");
    EXPECT_EQ(read(file), "hello world");
    EXPECT_EQ(read(file, 6, 3), "wor");
    EXPECT_EQ(read(file, 11), "");
    EXPECT_EQ(read(file, 1000), "");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "hello world");
}

TEST_F(FileTreeFiles, theFilesThatAreOpenForWritingAndHaveANameAreKnown) {
    served.put("/read", "r");
    EXPECT_THAT(tree().writtenNodes(), IsEmpty());
    open("/read", O_RDONLY);
    const OpenFileID first = create("/written");
    const OpenFileID second = open("/written", O_WRONLY);
    const OpenFileID removed = create("/removed");
    remove("/removed");
    EXPECT_THAT(tree().writtenNodes(), ElementsAre(node("/written")));
    close(first);
    rename("/written", "/moved");
    EXPECT_THAT(tree().writtenNodes(), ElementsAre(node("/moved")));
    close(second);
    close(removed);
    EXPECT_THAT(tree().writtenNodes(), IsEmpty());
}

TEST_F(FileTreeFiles, openingADirectoryIsEISDIR) {
    served.putDirectory("/d");
    EXPECT_EQ(errnoOf([&] { open("/d", O_RDONLY); }), EISDIR);
}

TEST_F(FileTreeFiles, anUnknownHandleIsEBADF) {
    std::byte byte{};
    EXPECT_EQ(errnoOf([&] { tree().read(OpenFileID{99}, 0, {&byte, 1}); }), EBADF);
    EXPECT_EQ(errnoOf([&] { tree().write(OpenFileID{99}, 0, {&byte, 1}); }), EBADF);
    EXPECT_EQ(errnoOf([&] { tree().flush(OpenFileID{99}); }), EBADF);
    EXPECT_EQ(errnoOf([&] { tree().synchronize(OpenFileID{99}); }), EBADF);
    EXPECT_EQ(errnoOf([&] { tree().release(OpenFileID{99}); }), EBADF);
    EXPECT_EQ(errnoOf([&] { tree().startListing(fusehost::OpenDirectoryID{99}); }), EBADF);
}

TEST_F(FileTreeFiles, opensTheModesAskedFor) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.takeRequests();
    for (const auto& [flags, request] : {std::pair(O_RDONLY, "open read /a"), {O_WRONLY, "open write,create /a"}}) {
        const OpenFileID opened = tree().open(file, flags);
        EXPECT_THAT(served.takeRequests(), ElementsAre(request));
        tree().release(opened);
        idle();
        EXPECT_THAT(served.takeRequests(), ElementsAre("release /a"));
    }
    close(open("/a", O_RDWR));
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("getattr /a", "open read /a", "open write,create /a", "release /a", "release /a"));
}

TEST_F(FileTreeFiles, withTheWritebackCacheAWriterIsOpenedForReadingToo) {
    options.writeback = true;
    served.put("/a", "abc");
    const OpenFileID file = open("/a", O_WRONLY);
    EXPECT_EQ(read(file), "abc");
}

TEST_F(FileTreeFiles, anOpenOfAVanishedFileIsESTALE) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { tree().open(file, O_RDONLY); }), ESTALE);
}

TEST_F(FileTreeFiles, anOpenThatMeetsAFileJustReplacedIsTriedAgain) {
    served.put("/a", "abc");
    const NodeID file = node("/a");
    served.before = refuseOnce("open read /a", posixErrno::ENOENT_);
    served.takeRequests();
    const OpenFileID opened = tree().open(file, O_RDONLY);
    EXPECT_THAT(served.takeRequests(), ElementsAre("open read /a", "getattr /a", "open read /a"));
    EXPECT_EQ(read(opened), "abc");
    tree().release(opened);
}

TEST_F(FileTreeFiles, anOpenIsENOENTWhereTheHelperOpensNothingThoughTheNameIsThere) {
    served.put("/a", "abc");
    served.before = refuseAlways("open read /a", posixErrno::ENOENT_);
    EXPECT_EQ(errnoOf([&] { open("/a", O_RDONLY); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { create("/a", O_RDONLY); }), ENOENT);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, aReadThatHasToOpenAFileThatIsGoneIsESTALE) {
    served.put("/a", "abc");
    const OpenFileID file = open("/a", O_RDONLY);
    rename("/a", "/b"); // which gives the handle back
    served.erase("/b");
    EXPECT_EQ(errnoOf([&] { read(file); }), ESTALE);
}

TEST_F(FileTreeFiles, aFailedOpenLeavesNothingOpen) {
    served.put("/a", "");
    served.before = refuseOnce("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { open("/a", O_RDWR); }), EACCES);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, aFailedOpenLeavesOtherOpenersAlone) {
    served.put("/a", "abc");
    const OpenFileID reader = open("/a", O_RDONLY);
    served.before = refuseOnce("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { open("/a", O_RDWR); }), EACCES);
    EXPECT_EQ(read(reader), "abc");
}

TEST_F(FileTreeFiles, shortAnswersAreJoined) {
    served.put("/a", "0123456789");
    served.mostPerRead = 3;
    const OpenFileID file = open("/a", O_RDONLY);
    served.takeRequests();
    EXPECT_EQ(read(file, 1, 8), "12345678");
    EXPECT_THAT(served.takeRequests(), ElementsAre("read /a 1+8", "read /a 4+5", "read /a 7+2"));
}

TEST_F(FileTreeFiles, aReadUpToTheKnownEndAsksNoMoreThanOnce) {
    served.put("/a", "0123456789");
    const OpenFileID file = open("/a", O_RDONLY);
    served.takeRequests();
    EXPECT_EQ(read(file, 4, 4096), "456789");
    EXPECT_THAT(served.takeRequests(), ElementsAre("read /a 4+4096"));
}

TEST_F(FileTreeFiles, byteByByteAnswersGiveTheRightBytes) {
    served.put("/a", "0123456789");
    served.mostPerRead = 1;
    EXPECT_EQ(read(open("/a", O_RDONLY), 0, 10), "0123456789");
}

TEST_F(FileTreeFiles, anErrorInTheMiddleOfAJoinedReadIsAnError) {
    served.put("/a", "0123456789");
    served.mostPerRead = 4;
    const OpenFileID file = open("/a", O_RDONLY);
    served.before = refuseOnce("read /a 4", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { read(file); }), EACCES);
    EXPECT_EQ(read(file), "0123456789");
}

TEST_F(FileTreeFiles, aFileThatShrankBehindTheMountReadsShort) {
    served.put("/a", "0123456789");
    const OpenFileID file = open("/a", O_RDONLY);
    served.put("/a", "01");
    EXPECT_EQ(read(file), "0123456789") << "the file that was opened";
    EXPECT_EQ(read(open("/a", O_RDONLY), 0, 10), "01");
}

TEST_F(FileTreeFiles, everyOpenerGetsTheFileThatHasTheName) {
    served.put("/a", "old");
    const OpenFileID first = open("/a", O_RDONLY);
    EXPECT_EQ(read(first), "old");
    served.put("/a", "new!");
    const OpenFileID second = open("/a", O_RDONLY);
    EXPECT_EQ(read(second), "new!");
    EXPECT_EQ(read(first), "new!") << "one file per node";
}

TEST_F(FileTreeFiles, openersShareTheHandleUntilTheLastOneCloses) {
    served.put("/a", "abc");
    const OpenFileID one = open("/a", O_RDONLY);
    const OpenFileID two = open("/a", O_RDONLY);
    EXPECT_EQ(served.openHandles(), 1U);
    close(one);
    EXPECT_EQ(served.openHandles(), 1U);
    EXPECT_EQ(read(two), "abc");
    close(two);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, theErrorOfGivingTheWriteHandleBackIsTheErrorOfClose) {
    const OpenFileID file = create("/a");
    write(file, 0, "abc");
    served.before = refuseOnce("release", posixErrno::ENOSPC_);
    EXPECT_EQ(close(file), ENOSPC);
    EXPECT_EQ(close(open("/a", O_WRONLY)), 0) << "reported once";
}

TEST_F(FileTreeFiles, aWritersCloseLeavesTheReadersHandle) {
    served.put("/a", "abc");
    const OpenFileID reader = open("/a", O_RDONLY);
    const OpenFileID writer = open("/a", O_WRONLY);
    EXPECT_EQ(read(reader), "abc");
    served.takeRequests();
    EXPECT_EQ(close(writer), 0);
    EXPECT_EQ(read(reader), "abc");
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a", "read /a 0+4096"));
}

TEST_F(FileTreeFiles, aFlushOfOneWriterLeavesTheOthersHandle) {
    const OpenFileID one = create("/a", O_WRONLY);
    const OpenFileID two = open("/a", O_WRONLY);
    write(one, 0, "1");
    served.takeRequests();
    tree().flush(one);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    write(two, 1, "2");
    EXPECT_THAT(served.takeRequests(), ElementsAre("write /a 1+1"));
    tree().flush(two);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a"));
}

TEST_F(FileTreeFiles, writingAfterAFlushOpensAgain) {
    const OpenFileID file = create("/a", O_WRONLY);
    write(file, 0, "1");
    tree().flush(file); // a duplicated descriptor was closed
    EXPECT_EQ(served.openHandles(), 0U);
    write(file, 1, "2");
    tree().flush(file);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_EQ(served.bytes("/a"), "12");
}

TEST_F(FileTreeFiles, flushingTwiceCountsOnce) {
    const OpenFileID one = create("/a", O_WRONLY);
    const OpenFileID two = open("/a", O_WRONLY);
    tree().flush(one);
    tree().flush(one);
    write(two, 0, "x");
    EXPECT_EQ(served.openHandles(), 1U);
    tree().flush(two);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, aFlushThatFailsForTheReadHandleStillClosesTheWriteHandle) {
    served.put("/a", "abc");
    const OpenFileID reader = open("/a", O_RDONLY);
    const OpenFileID writer = open("/a", O_RDWR);
    write(writer, 0, "x");
    served.before = refuseOnce("release", posixErrno::EACCES_);
    close(reader);
    close(writer);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, aReadersHandleIsGivenBackWhenThereIsNothingElseToDo) {
    served.put("/a", "a");
    served.put("/b", "b");
    const OpenFileID first = tree().open(node("/a"), O_RDONLY);
    served.takeRequests();
    tree().release(first);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    const OpenFileID second = tree().open(node("/b"), O_RDONLY);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /b", "open read /b"));
    EXPECT_TRUE(tree().isPending());
    tree().doNext();
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a"));
    EXPECT_FALSE(tree().isPending());
    tree().release(second);
}

TEST_F(FileTreeFiles, whoOpensAFileAgainGetsAHandleOfTheFileThatHasTheNameNow) {
    served.put("/a", "old");
    tree().release(tree().open(node("/a"), O_RDONLY));
    served.put("/a", "new");
    const OpenFileID again = open("/a", O_RDONLY);
    EXPECT_EQ(read(again), "new");
    close(again);
}

TEST_F(FileTreeFiles, aHandleThatWaitsIsGivenBackBeforeAnotherFileTakesTheName) {
    served.put("/a", "old");
    served.put("/b", "new");
    tree().release(tree().open(node("/a"), O_RDONLY));
    rename("/b", "/a");
    const OpenFileID file = open("/a", O_RDONLY);
    EXPECT_EQ(read(file), "new");
    close(file);
}

TEST_F(FileTreeFiles, aHandleThatWaitsIsNotTakenForThatOfAnOpenFileThatTakesTheName) {
    served.put("/a", "old");
    served.put("/b", "new");
    const OpenFileID file = open("/b", O_RDONLY);
    tree().release(tree().open(node("/a"), O_RDONLY));
    rename("/b", "/a");
    EXPECT_EQ(read(file), "new");
    close(file);
}

TEST_F(FileTreeFiles, handlesThatWaitAreGivenBackBeforeAnyChangeOfNamesOrAttributes) {
    served.put("/read", "old");
    served.put("/file", "x");
    served.putDirectory("/folder");
    served.put("/source", "x");
    const NodeID reading = node("/read");
    const NodeID file = node("/file");
    fusehost::AttributeChange shorter;
    shorter.size = 0;
    const std::vector<std::pair<const char*, std::function<void()>>> changes{
        {"create", [&] { close(create("/created")); }},
        {"makeNode", [&] { makeNode("/made"); }},
        {"makeDirectory", [&] { makeDirectory("/directory"); }},
        {"makeSymbolicLink", [&] { tree().makeSymbolicLink(rootNodeID, "link", "to"); }},
        {"makeLink", [&] { tree().makeLink(file, rootNodeID, "link"); }},
        {"setAttributes", [&] { tree().setAttributes(file, shorter); }},
        {"removeFile", [&] { tree().removeFile(rootNodeID, "file"); }},
        {"removeDirectory", [&] { tree().removeDirectory(rootNodeID, "folder"); }},
        {"rename", [&] { tree().rename(rootNodeID, "source", rootNodeID, "target", 0); }},
    };
    for (const auto& [name, change] : changes) {
        tree().release(tree().open(reading, O_RDONLY));
        ASSERT_TRUE(tree().isPending());
        served.takeRequests();
        errnoOf(change);
        const std::vector<std::string> requests = served.takeRequests();
        ASSERT_FALSE(requests.empty()) << name;
        EXPECT_EQ(requests.front(), "release /read") << name;
        idle();
    }
}

TEST_F(FileTreeFiles, fewHandlesWaitToBeGivenBack) {
    for (int number = 0; number < 20; ++number) {
        const std::string path = "/" + std::to_string(number);
        served.put(path, "");
        tree().release(tree().open(node(path), O_RDONLY));
    }
    EXPECT_LE(served.openHandles(), 8U);
    end();
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, aWritersHandleIsGivenBackAtOnce) {
    const OpenFileID file = create("/a");
    write(file, 0, "a");
    tree().flush(file);
    EXPECT_EQ(served.openHandles(), 0U);
    close(file);
}

TEST_F(FileTreeFiles, afterTwoBlocksInARowTheNextOneIsReadAhead) {
    served.put("/a", "0011223344");
    const OpenFileID file = open("/a", O_RDONLY);
    served.takeRequests();
    EXPECT_EQ(read(file, 0, 2), "00");
    EXPECT_THAT(served.takeRequests(), ElementsAre("read /a 0+2"));
    EXPECT_EQ(read(file, 2, 2), "11");
    EXPECT_EQ(read(file, 4, 2), "22");
    EXPECT_EQ(read(file, 6, 2), "33");
    EXPECT_EQ(read(file, 8, 2), "44");
    EXPECT_EQ(read(file, 10, 2), "");
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("read /a 2+2", "read /a 4+2", "read /a 6+2", "read /a 8+2", "read /a 10+2"));
    close(file);
}

TEST_F(FileTreeFiles, nothingIsReadAheadOfReadsHereAndThere) {
    served.put("/a", "0011223344");
    const OpenFileID file = open("/a", O_RDONLY);
    served.takeRequests();
    for (const std::int64_t offset : {4, 0, 8, 2, 6})
        read(file, offset, 2);
    EXPECT_THAT(served.takeRequests(), testing::SizeIs(5));
    close(file);
}

TEST_F(FileTreeFiles, nothingIsReadAheadWithTimeoutsOfZero) {
    options.attrTimeout = fusehost::Seconds(0);
    close(openAndReadAhead(O_RDONLY)); // which waits for what is being read
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("getattr /a", "open read /a", "read /a 0+2", "read /a 2+2", "release /a"));
}

TEST_F(FileTreeFiles, whatIsWrittenReplacesWhatWasReadAhead) {
    const OpenFileID file = openAndReadAhead(O_RDWR);
    write(file, 4, "xx");
    EXPECT_EQ(read(file, 4, 2), "xx");
    close(file);
}

TEST_F(FileTreeFiles, truncatingForgetsWhatWasReadAhead) {
    const OpenFileID file = openAndReadAhead(O_RDWR);
    truncate("/a", 5);
    EXPECT_EQ(read(file, 4, 2), "2");
    close(file);
}

TEST_F(FileTreeFiles, closingAfterReadingAheadGivesTheHandleBack) {
    const OpenFileID file = openAndReadAhead(O_RDONLY);
    close(file);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeFiles, movingAfterReadingAheadGivesTheHandleBackAndReadsOn) {
    const OpenFileID file = openAndReadAhead(O_RDONLY);
    rename("/a", "/b");
    EXPECT_EQ(read(file, 4, 2), "22");
    close(file);
}

TEST_F(FileTreeFiles, anErrorMetWhileReadingAheadIsMetByTheReadThatWantsTheBlock) {
    served.put("/a", "0011223344");
    const OpenFileID file = open("/a", O_RDONLY);
    read(file, 0, 2);
    served.before = refuseAlways("read /a 4", posixErrno::EACCES_);
    EXPECT_EQ(read(file, 2, 2), "11");
    EXPECT_EQ(errnoOf([&] { read(file, 4, 2); }), EACCES);
    close(file);
}

TEST_F(FileTreeFiles, whateverIsThrownWhileReadingAheadIsMetByTheReadThatWantsTheBlock) {
    served.put("/a", "0011223344");
    const OpenFileID file = open("/a", O_RDONLY);
    read(file, 0, 2);
    volume->onRead = [reader = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != reader)
            throw std::runtime_error("what no volume throws");
    };
    EXPECT_EQ(read(file, 2, 2), "11");
    EXPECT_EQ(read(file, 4, 2), "22");
    close(file);
    volume->onRead = {};
}

TEST_F(FileTreeFiles, aBlockReadAheadThatCameShortIsCompleted) {
    served.put("/a", "00112233445566");
    const OpenFileID file = open("/a", O_RDONLY);
    served.mostPerRead = 3;
    EXPECT_EQ(read(file, 0, 4), "0011");
    EXPECT_EQ(read(file, 4, 4), "2233");
    EXPECT_EQ(read(file, 8, 4), "4455"); // three of them were read ahead
    EXPECT_EQ(read(file, 12, 4), "66");
    close(file);
}

TEST_F(FileTreeFiles, aLongWriteGoesInSeveralRequests) {
    options.requestSize = 4096;
    const OpenFileID file = create("/a");
    served.takeRequests();
    write(file, 1, std::string(8193, 'x'));
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("open write,create /a", "write /a 1+4096", "write /a 4097+4096", "write /a 8193+1"));
    EXPECT_EQ(served.bytes("/a"), std::string(1, '\0') + std::string(8193, 'x'));
    close(file);
}

TEST_F(FileTreeFiles, aLongWriteThatFailsOnTheWayTellsHowMuchIsWritten) {
    options.requestSize = 4096;
    const OpenFileID file = create("/a");
    const std::string bytes(8192, 'x');
    served.before = refuseOnce("write /a 4096", posixErrno::ENOSPC_);
    EXPECT_EQ(tree().write(file, 0, std::as_bytes(std::span(bytes))), 4096U);
    EXPECT_EQ(served.bytes("/a").size(), 4096U);
    EXPECT_EQ(tree().getAttributes(node("/a")).st_size, 4096);
    close(file);
}

TEST_F(FileTreeFiles, aWriteErrorIsReported) {
    const OpenFileID file = create("/a");
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(errnoOf([&] { write(file, 0, "abc"); }), ENOSPC);
    write(file, 0, "abc");
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeFiles, anErrorMetWhenTheFileWasMovedIsToldByTheNextFlush) {
    const OpenFileID file = create("/a", O_WRONLY);
    write(file, 0, "abc");
    served.before = refuseOnce("release", posixErrno::ENOSPC_);
    rename("/a", "/b");
    EXPECT_EQ(close(file), ENOSPC);
}

TEST_F(FileTreeFiles, anErrorMetWhenTheFileWasMovedIsToldByTheNextFsync) {
    const OpenFileID file = create("/a", O_WRONLY);
    write(file, 0, "abc");
    served.before = refuseOnce("release", posixErrno::ENOSPC_);
    rename("/a", "/b");
    EXPECT_EQ(errnoOf([&] { tree().synchronize(file); }), ENOSPC);
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeFiles, theFirstOfTwoDeferredErrorsIsTheOneTold) {
    const OpenFileID file = create("/a", O_WRONLY);
    for (const auto& [name, error] : {std::pair("/b", posixErrno::ENOSPC_), {"/c", posixErrno::EIO_}}) {
        write(file, 0, "abc");
        served.before = refuseOnce("release", error);
        rename(std::string(name) == "/b" ? "/a" : "/b", name);
    }
    EXPECT_EQ(close(file), ENOSPC);
}

TEST_F(FileTreeFiles, aReadersDeferredErrorIsNotToldToALaterWriter) {
    served.put("/a", "abc");
    const OpenFileID reader = open("/a", O_RDONLY);
    served.before = refuseOnce("release", posixErrno::EACCES_);
    rename("/a", "/b");
    EXPECT_EQ(read(reader), "abc");
    close(reader);
    EXPECT_EQ(close(open("/b", O_WRONLY)), 0);
}

TEST_F(FileTreeFiles, anOpenFileIsKnownThoughTheKernelForgotIt) {
    const OpenFileID file = create("/a");
    forget(node("/a"));
    write(file, 0, "abc");
    EXPECT_EQ(read(file), "abc");
}

} // namespace
} // namespace fusehosttests
