#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

class FileTreeDurability : public FileTreeTest {
protected:
    /// A new file that was written to; nothing is recorded of it.
    OpenFileID written(const std::string& path, int flags = O_RDWR) {
        const OpenFileID file = create(path, flags);
        write(file, 0, "abc");
        served.takeRequests();
        return file;
    }

    int writePages(OpenFileID file, std::int64_t offset, std::string_view bytes) {
        return errnoOf([&] { tree().writePages(file, offset, std::as_bytes(std::span(bytes))); });
    }

    int synchronize(OpenFileID file) {
        return errnoOf([&] { tree().synchronize(file); });
    }

    /// What the helper was asked to make safe.
    std::vector<std::string> flushed() {
        std::vector<std::string> paths;
        for (const std::string& request : served.takeRequests())
            if (request.starts_with("flush "))
                paths.push_back(request.substr(6));
        return paths;
    }
};

TEST_F(FileTreeDurability, fsyncReachesTheVolume) {
    const OpenFileID file = written("/a");
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("flush /a", "statfs"));
    served.before = refuseOnce("flush", posixErrno::EDQUOT_);
    EXPECT_EQ(synchronize(file), EDQUOT);
}

TEST_F(FileTreeDurability, fsyncAfterADuplicateWasClosedFlushesWhatWasWritten) {
    const OpenFileID file = written("/a");
    tree().flush(file);
    served.takeRequests();
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("getattr /a", "open write,create /a", "flush /a", "statfs", "release /a"));
}

TEST_F(FileTreeDurability, fsyncAfterSomebodyElseOpenedTheFileFlushesWhatWasWritten) {
    const OpenFileID file = written("/a");
    const OpenFileID reader = open("/a", O_RDONLY);
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
    close(reader);
}

TEST_F(FileTreeDurability, fsyncByAReaderAfterTheWriterHasClosedFlushesWhatWasWritten) {
    EXPECT_EQ(close(written("/a")), 0);
    const OpenFileID reader = open("/a", O_RDONLY);
    EXPECT_EQ(synchronize(reader), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
    EXPECT_EQ(served.openHandles(), 1U) << "that of the reader";
}

TEST_F(FileTreeDurability, fsyncAfterARenameFlushesTheFileUnderItsNewName) {
    const OpenFileID file = written("/a");
    rename("/a", "/b");
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(flushed(), ElementsAre("/b"));
}

TEST_F(FileTreeDurability, fsyncOfARemovedOpenFileFlushesIt) {
    const OpenFileID file = written("/a");
    remove("/a");
    served.takeRequests();
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(flushed(), ElementsAre(StartsWith("/.kemvi-hidden-")));
}

TEST_F(FileTreeDurability, fsyncOfAFileThatTheKernelForgotMeanwhileFlushesIt) {
    const NodeID first = node("/");
    close(written("/a"));
    forget(node("/a"));
    EXPECT_NE(first, node("/a"));
    const OpenFileID reader = open("/a", O_RDONLY);
    served.takeRequests();
    EXPECT_EQ(synchronize(reader), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
    EXPECT_EQ(synchronize(reader), 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("statfs")) << "once is enough";
}

TEST_F(FileTreeDurability, fsyncOfAFileThatNobodyWroteOpensNothing) {
    served.put("/a", "abc");
    const OpenFileID reader = open("/a", O_RDONLY);
    served.takeRequests();
    EXPECT_EQ(synchronize(reader), 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("statfs"));
}

TEST_F(FileTreeDurability, fsyncOfANewEmptyFileFlushesIt) {
    const OpenFileID file = create("/a");
    served.takeRequests();
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
}

TEST_F(FileTreeDurability, closingCostsNoMoreThanGivingTheHandleBack) {
    const OpenFileID file = written("/a");
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a"));
}

TEST_F(FileTreeDurability, fsyncThatCouldNotFlushIsAnErrorAndTheNextOneTriesAgain) {
    const OpenFileID file = written("/a");
    tree().flush(file);
    served.before = refuseOnce("flush", posixErrno::ENOSPC_);
    EXPECT_EQ(synchronize(file), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
    served.takeRequests();
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
}

TEST_F(FileTreeDurability, fsyncThatMayNotOpenTheFileIsAnErrorAndNoSilentSuccess) {
    const OpenFileID file = written("/a");
    tree().flush(file);
    served.chmod("/a", 0444);
    EXPECT_EQ(synchronize(file), EACCES);
}

TEST_F(FileTreeDurability, fsyncDoesNotMakeAnewWhatWasRemovedBehindTheMount) {
    const OpenFileID file = written("/a");
    tree().flush(file);
    served.erase("/a");
    EXPECT_EQ(synchronize(file), ESTALE);
    EXPECT_FALSE(served.has("/a"));
}

TEST_F(FileTreeDurability, fsyncOfOneFileDoesNotTellTheErrorOfAnother) {
    const OpenFileID one = written("/a");
    const OpenFileID other = written("/b");
    served.before = refuseAlways("flush /b", posixErrno::ENOSPC_);
    EXPECT_EQ(synchronize(one), 0);
    EXPECT_THAT(flushed(), ElementsAre("/a"));
    EXPECT_EQ(synchronize(other), ENOSPC);
}

TEST_F(FileTreeDurability, anotherFilesErrorMetByAnFsyncIsToldByItsOwnClose) {
    const OpenFileID one = written("/a");
    const OpenFileID other = written("/b");
    served.before = refuseOnce("release /b", posixErrno::ENOSPC_);
    EXPECT_EQ(synchronize(one), 0);
    EXPECT_EQ(close(other), ENOSPC);
}

TEST_F(FileTreeDurability, anotherFileIsWrittenAndMadeSafeAfterAnFsync) {
    const OpenFileID one = written("/a");
    const OpenFileID other = written("/b");
    EXPECT_EQ(synchronize(one), 0);
    write(other, 3, "def");
    served.takeRequests();
    EXPECT_EQ(synchronize(other), 0);
    EXPECT_THAT(flushed(), ElementsAre("/b"));
    EXPECT_EQ(close(other), 0);
    EXPECT_EQ(served.bytes("/b"), "abcdef");
}

TEST_F(FileTreeDurability, aHandleThatCouldNotBeHadAgainIsKeptWhileAnotherFileIsMadeSafe) {
    const OpenFileID one = written("/a");
    const OpenFileID other = written("/b");
    fusehost::AttributeChange change;
    change.mode = 0444;
    tree().setAttributes(node("/b"), change);
    EXPECT_EQ(synchronize(one), 0);
    write(other, 3, "def");
    EXPECT_EQ(synchronize(other), 0);
    EXPECT_EQ(close(other), 0);
}

TEST_F(FileTreeDurability, anErrorThatCannotBeToldApartIsToldByBothFiles) {
    const OpenFileID one = written("/a");
    const OpenFileID other = written("/b");
    fusehost::AttributeChange change;
    change.mode = 0444;
    tree().setAttributes(node("/b"), change);
    served.before = refuseOnce("flush", posixErrno::ENOSPC_);
    EXPECT_EQ(synchronize(one), ENOSPC);
    EXPECT_EQ(synchronize(other), ENOSPC);
    EXPECT_EQ(synchronize(one), 0);
    EXPECT_EQ(synchronize(other), 0);
}

// Pages of the kernel's

TEST_F(FileTreeDurability, pagesThatCannotAllBeWrittenAreAnErrorNowAndAtTheNextFsync) {
    options.requestSize = 4096;
    const OpenFileID file = create("/a");
    served.before = refuseOnce("write /a 4096", posixErrno::ENOSPC_);
    EXPECT_EQ(writePages(file, 0, std::string(12288, 'x')), ENOSPC);
    EXPECT_EQ(synchronize(file), ENOSPC);
    EXPECT_EQ(synchronize(file), 0);
}

TEST_F(FileTreeDurability, theFirstErrorOfSeveralPagesIsTheOneTold) {
    options.requestSize = 4096;
    const OpenFileID file = create("/a");
    served.before = [](const std::string& request) {
        if (request.starts_with("write /a 4096"))
            foundation::throwPosix(posixErrno::ENOSPC_);
        if (request.starts_with("write /a 8192"))
            foundation::throwPosix(posixErrno::EIO_);
    };
    EXPECT_EQ(writePages(file, 0, std::string(12288, 'x')), ENOSPC);
    served.before = {};
    EXPECT_EQ(synchronize(file), ENOSPC);
}

TEST_F(FileTreeDurability, pagesThatCannotAllBeWrittenAreWrittenAsFarAsCanBe) {
    options.requestSize = 4096;
    const OpenFileID file = create("/a");
    served.before = refuseOnce("write /a 4096", posixErrno::ENOSPC_);
    writePages(file, 0, std::string(12288, 'x'));
    EXPECT_EQ(served.bytes("/a"), std::string(4096, 'x') + std::string(4096, '\0') + std::string(4096, 'x'));
}

TEST_F(FileTreeDurability, theErrorOfPagesIsToldToWhoeverClosesTheFileNext) {
    const OpenFileID mapper = create("/a");
    const OpenFileID writer = open("/a", O_WRONLY);
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(writePages(mapper, 0, "abc"), ENOSPC);
    EXPECT_EQ(close(writer), ENOSPC);
    EXPECT_EQ(close(mapper), 0);
}

TEST_F(FileTreeDurability, anErrorOfPagesThatNobodyWasToldIsLoggedAtTheEndOnce) {
    const OpenFileID mapper = create("/a", O_RDWR);
    open("/a", O_RDWR);
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(writePages(mapper, 0, "abc"), ENOSPC);
    end();
    EXPECT_THAT(log.texts(), ElementsAre(testing::AllOf(testing::HasSubstr("<private>"),
                                                        testing::HasSubstr("No space left on device"))));
}

TEST_F(FileTreeDurability, theErrorOfPagesIsToldToAReadersFsync) {
    const OpenFileID mapper = create("/a");
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(writePages(mapper, 0, "abc"), ENOSPC);
    release(mapper);
    EXPECT_EQ(synchronize(open("/a", O_RDONLY)), ENOSPC);
}

TEST_F(FileTreeDurability, theErrorOfPagesIsNotToldToWhoWritesTheFileAnew) {
    const OpenFileID mapper = create("/a");
    served.before = refuseOnce("write", posixErrno::ENOSPC_);
    EXPECT_EQ(writePages(mapper, 0, "abc"), ENOSPC);
    release(mapper);
    const OpenFileID writer = open("/a", O_WRONLY | O_TRUNC);
    write(writer, 0, "new");
    EXPECT_EQ(close(writer), 0);
}

TEST_F(FileTreeDurability, anErrorOfGivingBackAHandleThatNobodyIsLeftToHearIsToldByTheNextFsync) {
    const OpenFileID mapper = create("/a");
    tree().flush(mapper); // its descriptor was closed, the map lives on
    EXPECT_EQ(writePages(mapper, 0, "abc"), 0);
    served.before = refuseOnce("release", posixErrno::ENOSPC_);
    release(mapper);
    EXPECT_EQ(synchronize(open("/a", O_RDONLY)), ENOSPC);
}

TEST_F(FileTreeDurability, pagesThatAreWrittenAreNoError) {
    const OpenFileID file = create("/a");
    EXPECT_EQ(writePages(file, 0, "abc"), 0);
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_THAT(served.takeRequests(), Contains("flush /a"));
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "abc");
}

} // namespace
} // namespace fusehosttests
