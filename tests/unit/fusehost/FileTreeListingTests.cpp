#include "FileTreeTest.h"

#include <chrono>
#include <thread>

namespace fusehosttests {
namespace {

class FileTreeListing : public FileTreeTest {
protected:
    /// Opens the directory and takes its listing.
    fusehost::OpenDirectoryID listing(const std::string& path = "/") {
        const auto listed = tree().openDirectory(path == "/" ? rootNodeID : node(path));
        tree().startListing(listed);
        return listed;
    }

    const fusehost::ListedEntry* entry(fusehost::OpenDirectoryID listed, const std::string& name) {
        for (std::size_t index = 0; index < tree().listedCount(listed); ++index)
            if (const auto* found = tree().listedEntry(listed, index); found != nullptr && found->name == name)
                return found;
        return nullptr;
    }

    /// The node that the listing gives for a name; its reference is given back.
    std::optional<TreeEntry> listedNode(fusehost::OpenDirectoryID listed, const std::string& name) {
        const auto found = tree().listedNode(listed, *entry(listed, name));
        if (found)
            tree().forget(found->node, 1);
        return found;
    }
};

TEST_F(FileTreeListing, isOneRequestHoweverManyEntries) {
    for (int i = 0; i < 5000; ++i)
        served.put("/file" + std::to_string(i), "x");
    EXPECT_EQ(list("/").size(), 5002U);
    EXPECT_THAT(served.takeRequests(), ElementsAre("readdir /"));
}

TEST_F(FileTreeListing, ofAFileIsENOTDIR) {
    served.put("/a", "");
    EXPECT_EQ(errnoOf([&] { tree().openDirectory(node("/a")); }), ENOTDIR);
}

TEST_F(FileTreeListing, neitherSkipsNorRepeatsWhenEntriesGoWhileItIsRead) {
    for (const char* name : {"/a", "/b", "/c", "/d"})
        served.put(name, "");
    const auto listed = listing();
    std::vector<std::string> seen;
    for (std::size_t index = 2; index < tree().listedCount(listed); ++index) {
        const std::string name = tree().listedEntry(listed, index)->name;
        seen.push_back(name);
        remove("/" + name);
    }
    EXPECT_THAT(seen, ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(FileTreeListing, fromTheStartIsTakenAnew) {
    served.put("/a", "");
    const auto listed = listing();
    served.put("/b", "");
    EXPECT_EQ(entry(listed, "b"), nullptr);
    tree().startListing(listed);
    EXPECT_NE(entry(listed, "b"), nullptr);
}

TEST_F(FileTreeListing, thatFailsIsReportedAndServesNothing) {
    served.put("/a", "");
    const auto listed = listing();
    served.before = refuseOnce("readdir", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { tree().startListing(listed); }), EACCES);
    EXPECT_EQ(tree().listedCount(listed), 0U);
}

TEST_F(FileTreeListing, ofARemovedDirectoryIsEmpty) {
    makeDirectory("/d");
    const auto listed = tree().openDirectory(node("/d"));
    removeDirectory("/d");
    tree().startListing(listed);
    EXPECT_EQ(tree().listedCount(listed), 0U);
    EXPECT_EQ(tree().remainingTrust(listed, fusehost::Seconds(1)), fusehost::Seconds(0));
    tree().releaseDirectory(listed);
    EXPECT_EQ(errnoOf([&] { tree().listedCount(listed); }), EBADF);
}

TEST_F(FileTreeListing, givesNodesWithAttributesAndWithoutARequest) {
    served.put("/a", "12345");
    served.putDirectory("/d");
    const auto listed = listing();
    served.takeRequests();
    const auto file = listedNode(listed, "a");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->attributes.st_size, 5);
    const auto directory = listedNode(listed, "d");
    ASSERT_TRUE(directory);
    EXPECT_TRUE(S_ISDIR(directory->attributes.st_mode));
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(FileTreeListing, aListedNodeIsOpenedWithoutALookup) {
    served.put("/a", "12345");
    const auto listed = listing();
    const auto file = tree().listedNode(listed, *entry(listed, "a"));
    ASSERT_TRUE(file);
    served.takeRequests();
    const OpenFileID opened = tree().open(file->node, O_RDONLY);
    EXPECT_THAT(served.takeRequests(), ElementsAre("open read /a"));
    EXPECT_EQ(read(opened), "12345");
    tree().release(opened);
    EXPECT_EQ(node("/a"), file->node);
    tree().forget(file->node, 1);
}

TEST_F(FileTreeListing, aListedNodeThatVanishedSinceIsStaleToAnOpener) {
    served.put("/a", "12345");
    const auto listed = listing();
    const auto file = listedNode(listed, "a");
    ASSERT_TRUE(file);
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { tree().open(file->node, O_RDONLY); }), ESTALE);
}

TEST_F(FileTreeListing, aListedFileIsRemovedWithoutALookup) {
    served.put("/a", "12345");
    const auto listed = listing();
    const auto file = tree().listedNode(listed, *entry(listed, "a"));
    ASSERT_TRUE(file);
    served.takeRequests();
    tree().removeFile(rootNodeID, "a");
    EXPECT_THAT(served.takeRequests(), ElementsAre("unlink /a"));
    tree().forget(file->node, 1);
}

TEST_F(FileTreeListing, membersOfAListedDirectoryAreFound) {
    served.putDirectory("/d");
    served.put("/d/a", "text");
    const auto listed = listing();
    const auto directory = tree().listedNode(listed, *entry(listed, "d"));
    ASSERT_TRUE(directory);
    served.takeRequests();
    const TreeEntry member = tree().lookup(directory->node, "a");
    EXPECT_EQ(member.attributes.st_size, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /d/a"));
    tree().forget(member.node, 1);
    tree().forget(directory->node, 1);
}

TEST_F(FileTreeListing, isTrustedFromItsAnswerOnHoweverLongThatTook) {
    options.attrTimeout = fusehost::Seconds(10);
    const auto before = std::chrono::steady_clock::now();
    served.before = [](const std::string& request) {
        if (request.starts_with("readdir"))
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
    };
    const auto listed = listing();
    const auto taken = std::chrono::steady_clock::now() - before;
    EXPECT_GT(tree().remainingTrust(listed, options.attrTimeout),
              options.attrTimeout - taken + std::chrono::milliseconds(100));
}

TEST_F(FileTreeListing, givesNoNodesForDotAndDotDot) {
    const auto listed = listing();
    EXPECT_FALSE(listedNode(listed, "."));
    EXPECT_FALSE(listedNode(listed, ".."));
}

TEST_F(FileTreeListing, withTimeoutsOfZeroGivesNamesAlone) {
    options.attrTimeout = fusehost::Seconds(0);
    served.put("/a", "");
    EXPECT_FALSE(listedNode(listing(), "a"));
}

TEST_F(FileTreeListing, doesNotTellOfAFileWrittenSince) {
    const OpenFileID file = create("/a");
    const auto listed = listing();
    write(file, 0, "0123");
    EXPECT_FALSE(listedNode(listed, "a"));
    EXPECT_TRUE(listedNode(listing(), "a"));
}

TEST_F(FileTreeListing, doesNotTellOfAFileWrittenSinceAndForgotten) {
    served.put("/a", "1");
    const auto listed = listing();
    const OpenFileID file = open("/a", O_WRONLY);
    write(file, 0, "0123");
    close(file);
    forget(node("/a"));
    EXPECT_FALSE(listedNode(listed, "a")) << "the old size would make the kernel cut the file";
}

TEST_F(FileTreeListing, doesNotTellOfAFileWhoseSizeOrModeOrTimeWasSetSince) {
    served.put("/a", "0123");
    node("/a");
    const auto listed = listing();
    truncate("/a", 2);
    EXPECT_FALSE(listedNode(listed, "a"));
}

TEST_F(FileTreeListing, doesNotTellOfAFileRemovedOrMovedOrMadeSince) {
    for (const char* name : {"/a", "/b", "/c"})
        served.put(name, "x");
    const auto listed = listing();
    remove("/a");
    rename("/b", "/d");
    remove("/c");
    create("/c");
    for (const char* name : {"a", "b", "c"})
        EXPECT_FALSE(listedNode(listed, name)) << name;
}

TEST_F(FileTreeListing, doesNotTakeBackWhatTheKernelWasToldSince) {
    served.put("/a", "1");
    const auto listed = listing();
    served.append("/a", "234");
    EXPECT_EQ(tree().getAttributes(node("/a")).st_size, 4);
    EXPECT_FALSE(listedNode(listed, "a")) << "it would show the size of before";
}

TEST_F(FileTreeListing, doesNotTellOfAFileThatBecameADirectory) {
    served.put("/a", "1");
    const auto listed = listing();
    served.erase("/a");
    served.putDirectory("/a");
    node("/a");
    EXPECT_TRUE(S_ISDIR(lookup("/a").attributes.st_mode)) << "a name that is looked up again is asked for";
    EXPECT_FALSE(listedNode(listed, "a"));
}

TEST_F(FileTreeListing, aHelperThatTellsNamesAloneIsAskedForTheRest) {
    served.put("/a", "12345");
    served.listsNamesAlone = true;
    EXPECT_FALSE(listedNode(listing(), "a")) << "a size of 0 would make the file look empty";
}

TEST_F(FileTreeListing, leavesOutHiddenFiles) {
    const OpenFileID file = create("/a");
    const auto listed = listing();
    remove("/a");
    EXPECT_NE(entry(listed, "a"), nullptr) << "it was there when the listing was taken";
    tree().startListing(listed);
    EXPECT_EQ(tree().listedCount(listed), 3U);
    EXPECT_EQ(tree().listedEntry(listed, 2), nullptr);
    close(file);
}

} // namespace
} // namespace fusehosttests
