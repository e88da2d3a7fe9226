#include "FileTreeTest.h"

#include <algorithm>

namespace fusehosttests {
namespace {

using testing::Contains;
using testing::Each;
using testing::Not;

/// Another volume takes the place of the one that the tree shows.
class FileTreeVolume : public FileTreeTest {
protected:
    int synchronize(OpenFileID file) {
        return errnoOf([&] { tree().synchronize(file); });
    }

    bool hasHidden() {
        const auto names = served.names("/");
        return std::any_of(names.begin(), names.end(),
                           [](const std::string& name) { return name.starts_with(".kemvi-hidden-"); });
    }
};

TEST_F(FileTreeVolume, nodesKeepTheirNumbers) {
    served.putDirectory("/d");
    served.put("/d/a", "0123");
    const NodeID file = node("/d/a");
    const NodeID directory = node("/d");
    loseVolume();
    EXPECT_EQ(tree().getAttributes(file).st_size, 4);
    EXPECT_EQ(node("/d/a"), file);
    EXPECT_EQ(node("/d"), directory);
}

TEST_F(FileTreeVolume, whatWasKnownIsAskedForAgain) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    served.put("/a", "012345");
    loseVolume();
    EXPECT_EQ(tree().getAttributes(file).st_size, 6);
    EXPECT_EQ(node("/a"), file);
}

TEST_F(FileTreeVolume, aFileThatHasBecomeADirectoryIsStale) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    served.erase("/a");
    served.putDirectory("/a");
    loseVolume();
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    EXPECT_NE(node("/a"), file);
}

TEST_F(FileTreeVolume, openFilesGoOn) {
    served.put("/a", "0123456789");
    const OpenFileID reader = open("/a", O_RDONLY);
    const OpenFileID writer = open("/a", O_RDWR);
    EXPECT_EQ(read(reader, 0, 4), "0123");
    loseVolume();
    EXPECT_EQ(read(reader, 4, 4), "4567");
    write(writer, 0, "ab");
    EXPECT_EQ(read(writer, 0, 4), "ab23");
    EXPECT_EQ(close(writer), 0) << "nothing had been written before";
    EXPECT_EQ(served.bytes("/a"), "ab23456789");
}

TEST_F(FileTreeVolume, anOpenFileWhoseNameIsGoneIsStaleForItsDescriptorAlone) {
    served.put("/a", "0123");
    served.put("/b", "4567");
    const OpenFileID gone = open("/a", O_RDWR);
    const OpenFileID there = open("/b", O_RDONLY);
    served.erase("/a");
    loseVolume();
    EXPECT_EQ(errnoOf([&] { read(gone); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().write(gone, 0, {}); }), ESTALE);
    EXPECT_FALSE(served.has("/a")) << "made anew by a write";
    EXPECT_EQ(read(there), "4567");
}

TEST_F(FileTreeVolume, removedFilesThatAreOpenLiveOnUnderTheirHiddenNames) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    EXPECT_EQ(synchronize(file), 0);
    remove("/a");
    loseVolume();
    EXPECT_EQ(read(file), "0123");
    write(file, 4, "45");
    EXPECT_THAT(list("/"), ElementsAre(".", ".."));
    EXPECT_TRUE(hasHidden());
    EXPECT_EQ(close(file), 0);
    EXPECT_FALSE(hasHidden());
}

TEST_F(FileTreeVolume, aRemovedFileWhoseLastCloseMetTheEndIsRemovedAfterwards) {
    endTest = isGone;
    const OpenFileID file = create("/a");
    remove("/a");
    served.before = [](const std::string&) { throwGone(); };
    EXPECT_EQ(close(file), 0);
    served.before = {};
    EXPECT_TRUE(hasHidden());
    EXPECT_THAT(list("/"), ElementsAre(".", "..")) << "not shown meanwhile";
    loseVolume();
    EXPECT_FALSE(hasHidden());
    EXPECT_THAT(log.texts(), Each(Not(testing::HasSubstr("stays in the served tree"))));
}

// What a volume had accepted

TEST_F(FileTreeVolume, whatWasWrittenAndIsNotSafeIsToldByTheNextFsync) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    loseVolume();
    EXPECT_EQ(synchronize(file), EIO);
    served.takeRequests();
    EXPECT_EQ(synchronize(file), 0) << "once";
    EXPECT_THAT(served.takeRequests(), Contains("flush /a")) << "and what has survived is made safe";
}

TEST_F(FileTreeVolume, whatWasWrittenAndIsNotSafeIsToldByTheNextClose) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    loseVolume();
    EXPECT_EQ(close(file), EIO);
}

TEST_F(FileTreeVolume, itIsToldThoughMoreIsWrittenAfterwards) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    loseVolume();
    write(file, 4, "4567");
    EXPECT_EQ(synchronize(file), EIO);
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeVolume, whatWasMadeSafeIsNotToldAsLost) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    EXPECT_EQ(synchronize(file), 0);
    loseVolume();
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeVolume, aFileThatWasClosedAndNotMadeSafeIsToldByTheNextFsyncAlone) {
    const OpenFileID written = create("/b");
    write(written, 0, "0123");
    EXPECT_EQ(close(written), 0);
    loseVolume();
    const OpenFileID another = open("/b", O_RDWR);
    write(another, 4, "45");
    EXPECT_EQ(errnoOf([&] { tree().flush(another); }), 0) << "its own bytes are there";
    EXPECT_EQ(synchronize(another), EIO);
    EXPECT_EQ(synchronize(another), 0);
}

TEST_F(FileTreeVolume, aFileThatWasEmptiedSinceHasNothingToTell) {
    const OpenFileID written = create("/a");
    write(written, 0, "0123");
    EXPECT_EQ(close(written), 0);
    loseVolume();
    truncate("/a", 0);
    const OpenFileID another = open("/a", O_RDWR);
    EXPECT_EQ(synchronize(another), 0);
}

// A volume that goes in good order

TEST_F(FileTreeVolume, aVolumeThatGoesInGoodOrderLosesNothing) {
    const OpenFileID one = create("/a");
    const OpenFileID two = create("/b");
    const OpenFileID reader = open("/a", O_RDONLY);
    write(one, 0, "0123");
    write(two, 0, "4567");
    EXPECT_EQ(read(reader), "0123");
    served.takeRequests();
    changeVolume();
    const auto requests = served.takeRequests();
    EXPECT_THAT(requests, Contains("flush /a"));
    EXPECT_THAT(requests, Contains("flush /b"));
    EXPECT_EQ(synchronize(one), 0);
    EXPECT_EQ(close(two), 0);
    EXPECT_EQ(read(reader), "0123");
    write(one, 4, "89");
    EXPECT_EQ(served.bytes("/a"), "012389");
}

TEST_F(FileTreeVolume, whatCouldNotBeMadeSafeInGoodOrderIsTold) {
    const OpenFileID one = create("/a");
    const OpenFileID two = create("/b");
    write(one, 0, "0123");
    write(two, 0, "4567");
    served.before = refuseOnce("flush /a", posixErrno::EDQUOT_);
    changeVolume();
    EXPECT_EQ(close(one), EDQUOT);
    EXPECT_EQ(close(two), 0);
}

TEST_F(FileTreeVolume, handlesOfReadersThatNobodyUsesAreGivenBack) {
    served.put("/a", "0123");
    const OpenFileID file = open("/a", O_RDONLY);
    read(file);
    tree().release(file);
    forgetOpen(file);
    EXPECT_TRUE(tree().isPending());
    changeVolume();
    EXPECT_FALSE(tree().isPending());
}

// Directories

TEST_F(FileTreeVolume, anOpenDirectoryGoesOnWithItsListing) {
    served.put("/a", "0123");
    served.put("/b", "4567");
    const fusehost::OpenDirectoryID directory = tree().openDirectory(rootNodeID);
    tree().startListing(directory);
    served.erase("/b");
    loseVolume();
    ASSERT_EQ(tree().listedCount(directory), 4U);
    const fusehost::ListedEntry* entry = tree().listedEntry(directory, 3);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->name, "b");
    EXPECT_FALSE(tree().listedNode(directory, *entry)) << "the name alone is told";
    tree().releaseDirectory(directory);
    EXPECT_THAT(list("/"), ElementsAre(".", "..", "a"));
}

TEST_F(FileTreeVolume, lookupsAreToldNothingFromAnOlderListing) {
    served.put("/a", "0123");
    list("/");
    served.put("/a", "012345");
    loseVolume();
    EXPECT_EQ(lookup("/a").attributes.st_size, 6);
}

TEST_F(FileTreeVolume, whatWasReadAheadIsForgotten) {
    served.put("/a", std::string(300, 'x'));
    const OpenFileID file = open("/a", O_RDONLY);
    read(file, 0, 100);
    read(file, 100, 100); // and the next block is on its way
    served.put("/a", std::string(300, 'y'));
    loseVolume();
    EXPECT_EQ(read(file, 200, 100), std::string(100, 'y'));
}

} // namespace
} // namespace fusehosttests
