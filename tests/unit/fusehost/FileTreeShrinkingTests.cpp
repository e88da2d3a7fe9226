#include "FileTreeTest.h"

#include "hosts/fuse/tree/TemporaryFolder.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace fusehosttests {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

std::string counting(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>('a' + i % 26);
    return text;
}

class FileTreeShrinking : public FileTreeTest {
protected:
    /// The copies of heads that lie in the served tree.
    std::vector<std::string> copies() {
        std::vector<std::string> found;
        for (const std::string& name : served.names("/"))
            if (name.starts_with(".kemvi-hidden-"))
                found.push_back(name);
        return found;
    }

    /// Removes the copies behind the mount, as a user does who has looked at them.
    void clearCopies() {
        for (const std::string& name : copies())
            served.erase("/" + name);
    }
};

TEST_F(FileTreeShrinking, makesTheFileSafeWhenTheHeadIsBackAndNotWhileItIsEmpty) {
    served.put("/a", "0123456789");
    node("/a");
    served.takeRequests();
    truncate("/a", 4);
    std::vector<std::string> ofTheFile;
    for (const std::string& request : served.takeRequests())
        if (request.find(".kemvi-hidden") == std::string::npos && !request.starts_with("getattr"))
            ofTheFile.push_back(request);
    EXPECT_THAT(ofTheFile,
                ElementsAre("open read /a", "read /a 0+4", "statfs", "open write,create,truncate /a", "release /a",
                            "open write,create /a", "write /a 0+4", "flush /a", "statfs", "release /a", "release /a"));
}

TEST_F(FileTreeShrinking, emptiesTheFileOnlyWhenACopyOfTheHeadIsSafe) {
    served.put("/a", "0123456789");
    std::vector<std::string> before;
    served.before = [&](const std::string& request) {
        if (request != "open write,create,truncate /a")
            return;
        before = served.takeRequests();
        ASSERT_THAT(copies(), SizeIs(1));
        EXPECT_EQ(served.bytes("/" + copies()[0]), "0123");
        EXPECT_EQ(served.mode("/" + copies()[0]), 0600U) << "the file may be private";
        EXPECT_THAT(copies()[0], EndsWith("-head-of-a"));
    };
    truncate("/a", 4);
    EXPECT_THAT(before, Contains(StartsWith("flush /.kemvi-hidden-")));
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(FileTreeShrinking, keepsTheModeOfTheFile) {
    served.put("/a", "0123456789");
    served.chmod("/a", 0640);
    truncate("/a", 4);
    EXPECT_EQ(served.mode("/a"), 0640U);
}

// Whoever dies, and whenever: from some request on, none is carried out any more.
TEST_F(FileTreeShrinking, leavesTheHeadInTheFileOrBesideItWheneverTheHelperDies) {
    options.requestSize = 4096;
    const std::string all = counting(20000);
    const std::string head = all.substr(0, 10000);
    int last = 0;
    for (int survived = 0; last == 0; ++survived) {
        served.put("/a", all);
        node("/a");
        int asked = 0;
        served.before = [&](const std::string&) {
            if (asked++ >= survived)
                foundation::throwPosix(posixErrno::EIO_);
        };
        const int error = errnoOf([&] { truncate("/a", head.size()); });
        served.before = {};
        const std::string bytes = served.bytes("/a");
        const bool isInTheFile = bytes == all || bytes == head;
        const std::vector<std::string> left = copies();
        const bool isBesideIt = std::any_of(left.begin(), left.end(), [&](const std::string& name) {
            return name.ends_with("-head-of-a") && served.bytes("/" + name) == head;
        });
        EXPECT_TRUE(isInTheFile || isBesideIt) << "after " << survived << " requests";
        clearCopies();
        if (error == 0 && asked <= survived)
            last = survived;
    }
    EXPECT_GT(last, 20);
}

TEST_F(FileTreeShrinking, worksWhereNoSecondFileCanBeMade) {
    served.put("/a", "0123456789");
    served.before = refuseAlways("open write,create,truncate /.kemvi-hidden", posixErrno::EACCES_);
    EXPECT_EQ(truncate("/a", 4).st_size, 4);
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeShrinking, worksWhereThereIsNoRoomForACopy) {
    served.put("/a", "0123456789");
    served.before = refuseAlways("write /.kemvi-hidden", posixErrno::ENOSPC_);
    EXPECT_EQ(truncate("/a", 4).st_size, 4);
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(FileTreeShrinking, ofAFileThatIsRemovedMakesNoCopy) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123456789");
    const NodeID removed = node("/a");
    remove("/a");
    served.takeRequests();
    fusehost::AttributeChange change;
    change.size = 4;
    tree().setAttributes(removed, change);
    EXPECT_THAT(served.takeRequests(), Not(Contains(HasSubstr("-head-of-"))));
    EXPECT_EQ(read(file), "0123");
}

TEST_F(FileTreeShrinking, ofAFileWithALongNameMakesACopyWithAsMuchOfItAsThereIsRoomFor) {
    std::string name;
    while (name.size() + 2 <= 255)
        name += "\xc3\xa9";
    served.put("/" + name, "0123456789");
    bool isCopied = false;
    served.before = [&](const std::string& request) {
        if (request != "open write,create,truncate /" + name)
            return;
        const std::string copy = copies().at(0);
        isCopied = copy.size() <= 255 && copy.size() > 250 && copy.ends_with("\xc3\xa9");
    };
    truncate("/" + name, 4);
    EXPECT_TRUE(isCopied);
}

TEST_F(FileTreeShrinking, ofAFileThatCannotBeWrittenBackPutsTheCopyInItsPlace) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123456789");
    served.before = refuseAlways("write /a", posixErrno::ENOSPC_);
    EXPECT_EQ(truncate("/a", 4).st_size, 4);
    served.before = {};
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_THAT(copies(), IsEmpty());
    EXPECT_THAT(log.texts(), Contains(HasSubstr("took its place")));
    write(file, 4, "x");
    EXPECT_EQ(read(file), "0123x");
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeShrinking, ofAFileThatCanNeitherBeWrittenBackNorReplacedLeavesTheCopyAndTellsOfIt) {
    served.put("/a", counting(3000));
    served.before = [](const std::string& request) {
        if (request.starts_with("write /a") || request.starts_with("rename"))
            foundation::throwPosix(posixErrno::ENOSPC_);
    };
    EXPECT_EQ(errnoOf([&] { truncate("/a", 2000); }), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
    ASSERT_THAT(copies(), SizeIs(1));
    EXPECT_EQ(served.bytes("/" + copies()[0]), counting(2000));
    EXPECT_THAT(list("/"), Contains(copies()[0])) << "it is to be found through the mount, too";
    EXPECT_THAT(log.texts(), Contains(HasSubstr("its head is kept beside it, as .kemvi-hidden-")));
    clearCopies();
}

TEST_F(FileTreeShrinking, ofAFileThatCannotBeWrittenBackAndHasNoCopyTellsOfTheLoss) {
    served.put("/a", counting(3000));
    served.before = [](const std::string& request) {
        if (request.starts_with("write /"))
            foundation::throwPosix(posixErrno::ENOSPC_);
    };
    EXPECT_EQ(errnoOf([&] { truncate("/a", 2000); }), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_THAT(log.texts(), Contains(HasSubstr("lost")));
}

TEST_F(FileTreeShrinking, anErrorOfEmptyingTheFileIsReportedAndNothingIsLost) {
    served.put("/a", "0123456789");
    served.before = refuseOnce("open write,create,truncate /a", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { truncate("/a", 5); }), EACCES);
    EXPECT_EQ(served.bytes("/a"), "0123456789");
    EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(FileTreeShrinking, anErrorOfMakingTheHeadSafeIsMetWithASecondAttempt) {
    served.put("/a", "0123456789");
    served.before = refuseOnce("flush /a", posixErrno::EIO_);
    EXPECT_EQ(truncate("/a", 5).st_size, 5);
    EXPECT_EQ(served.bytes("/a"), "01234");
    EXPECT_THAT(log.texts(), Not(Contains(HasSubstr("took its place")))) << "the file itself is safe, with its mode";
}

TEST_F(FileTreeShrinking, anErrorOfWritingTheHeadIsMetWithASecondAttemptThatIsMadeSafe) {
    served.put("/a", "0123456789");
    served.before = refuseOnce("write /a", posixErrno::EIO_);
    EXPECT_EQ(truncate("/a", 5).st_size, 5);
    EXPECT_EQ(served.bytes("/a"), "01234");
    EXPECT_THAT(served.takeRequests(), Contains("flush /a"));
    EXPECT_THAT(log.texts(), Not(Contains(HasSubstr("took its place"))));
}

TEST_F(FileTreeShrinking, aHeadThatCannotBeMadeSafeGivesWayToItsCopyWhichIs) {
    served.put("/a", "0123456789");
    served.before = refuseAlways("flush /a", posixErrno::EIO_);
    EXPECT_EQ(truncate("/a", 5).st_size, 5);
    EXPECT_EQ(served.bytes("/a"), "01234");
    EXPECT_THAT(log.texts(), Contains(HasSubstr("took its place")));
}

TEST_F(FileTreeShrinking, doesNotTellTheErrorOfAnotherFile) {
    const OpenFileID other = create("/b");
    write(other, 0, "x");
    served.put("/a", "0123456789");
    served.before = refuseAlways("flush /b", posixErrno::EIO_);
    EXPECT_EQ(truncate("/a", 5).st_size, 5);
    EXPECT_EQ(errnoOf([&] { tree().synchronize(other); }), EIO);
}

TEST_F(FileTreeShrinking, shrinkingSurvivesShortReads) {
    options.requestSize = 4096;
    const std::string all = counting(30000);
    served.put("/a", all);
    served.mostPerRead = 1000;
    EXPECT_EQ(truncate("/a", 20001).st_size, 20001);
    EXPECT_EQ(served.bytes("/a"), all.substr(0, 20001));
}

TEST_F(FileTreeShrinking, fillsUpWithZerosWhatAFileLacksThatIsShorterThanItsSizeSays) {
    served.put("/a", "0123456789");
    node("/a");
    served.before = [&, isDone = false](const std::string& request) mutable {
        if (request == "open read /a" && !std::exchange(isDone, true))
            served.put("/a", "0123"); // behind the mount, just now
    };
    EXPECT_EQ(truncate("/a", 8).st_size, 8);
    EXPECT_EQ(served.bytes("/a"), std::string("0123\0\0\0\0", 8));
}

// A helper may refuse a name that is not UTF-8.
TEST_F(FileTreeShrinking, cutsTheNameOfTheFileInThatOfItsCopyOnlyBetweenCharacters) {
    std::string twoBytesEach;
    for (int i = 0; i < 127; ++i)
        twoBytesEach += "\xC3\xA4";
    for (const std::string& name : {twoBytesEach, "x" + twoBytesEach}) {
        served.put("/" + name, "0123456789");
        std::vector<std::string> seen;
        served.before = [&](const std::string& request) {
            if (request.starts_with("open write,create,truncate /" + name))
                seen = copies();
        };
        truncate("/" + name, 4);
        served.before = {};
        ASSERT_THAT(seen, SizeIs(1));
        const std::string ofTheFile = seen[0].substr(seen[0].find("-head-of-") + 9);
        EXPECT_GE(seen[0].size(), 254U);
        EXPECT_EQ((ofTheFile.size() - (name.size() - twoBytesEach.size())) % 2, 0U);
        EXPECT_TRUE(name.starts_with(ofTheFile));
    }
}

TEST_F(FileTreeShrinking, aReadErrorWhileShrinkingLeavesTheFileAlone) {
    options.requestSize = 4096;
    const std::string all = counting(30000);
    served.put("/a", all);
    served.before = refuseOnce("read /a 8192", posixErrno::EIO_);
    EXPECT_EQ(errnoOf([&] { truncate("/a", 20000); }), EIO);
    EXPECT_EQ(served.bytes("/a"), all);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeShrinking, aWriteErrorWhileShrinkingIsMetWithASecondAttempt) {
    options.requestSize = 4096;
    const std::string all = counting(30000);
    served.put("/a", all);
    served.before = refuseOnce("write /a 8192", posixErrno::EIO_);
    EXPECT_EQ(truncate("/a", 20000).st_size, 20000);
    EXPECT_EQ(served.bytes("/a"), all.substr(0, 20000));
}

// Temporary files

TEST(TemporaryFolder, isTheOneThatWasThereWhenItWasMade) {
    char path[] = "/tmp/kemvi-temporary-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    const std::string moved = std::string(path) + "-moved";
    const char* const before = std::getenv("TMPDIR");
    const std::string kept = before == nullptr ? "" : before;
    setenv("TMPDIR", path, 1);
    const fusehost::TemporaryFolder folder;
    before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", kept.c_str(), 1);
    // Something else takes the path, as a mount does that covers it.
    ASSERT_EQ(std::rename(path, moved.c_str()), 0);
    {
        const fusehost::TemporaryFile file = folder.makeFile();

        struct stat made {};

        struct stat there {};

        ASSERT_EQ(fstat(fileno(file.get()), &made), 0);
        ASSERT_EQ(stat(moved.c_str(), &there), 0);
        EXPECT_EQ(made.st_dev, there.st_dev);
        EXPECT_EQ(made.st_nlink, 0U);
    }
    EXPECT_EQ(rmdir(moved.c_str()), 0);
}

} // namespace
} // namespace fusehosttests
