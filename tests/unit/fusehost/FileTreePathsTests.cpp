#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

/// A helper that reports other paths than those of folder and name: every request must be for a path that it reported.
class FileTreePaths : public FileTreeTest {
protected:
    void SetUp() override {
        served.put("/shown", "another file, which nobody asked for");
        served.put("/kept", "text");
        served.oddPaths = {{"/shown", "/kept"}};
    }

    /// What `ls -l` does: the nodes of all entries of the root, as the listing tells them.
    void listLong(const std::string& path = "/") {
        const auto opened = tree().openDirectory(path == "/" ? rootNodeID : node(path));
        tree().startListing(opened);
        for (std::size_t index = 0; index < tree().listedCount(opened); ++index)
            if (const auto entry = tree().listedNode(opened, *tree().listedEntry(opened, index)))
                listed_.push_back(entry->node);
        tree().releaseDirectory(opened);
        served.takeRequests();
    }

    void TearDown() override {
        for (const NodeID node : listed_)
            tree().forget(node, 1);
        FileTreeTest::TearDown();
    }

private:
    std::vector<NodeID> listed_;
};

TEST_F(FileTreePaths, aListedFileIsRemovedByThePathThatWasReported) {
    listLong();
    tree().removeFile(rootNodeID, "shown");
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /shown", "unlink /kept"));
    EXPECT_EQ(served.bytes("/shown"), "another file, which nobody asked for");
}

TEST_F(FileTreePaths, aListedFileIsRenamedByThePathThatWasReported) {
    listLong();
    tree().rename(rootNodeID, "shown", rootNodeID, "new", 0);
    EXPECT_THAT(served.takeRequests(), testing::IsSupersetOf({"getattr /shown", "rename /kept /new"}));
    EXPECT_EQ(served.bytes("/new"), "text");
}

TEST_F(FileTreePaths, aListedFileIsWrittenByThePathThatWasReported) {
    listLong();
    const OpenFileID file = open("/shown", O_WRONLY);
    write(file, 4, "!");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/kept"), "text!");
    EXPECT_EQ(served.bytes("/shown"), "another file, which nobody asked for");
}

TEST_F(FileTreePaths, aListedFileThatIsUsedByItsNodeIsLookedUpFirst) {
    const auto opened = tree().openDirectory(rootNodeID);
    tree().startListing(opened);
    for (std::size_t index = 0; index < tree().listedCount(opened); ++index) {
        const fusehost::ListedEntry& entry = *tree().listedEntry(opened, index);
        const auto listed = tree().listedNode(opened, entry);
        if (!listed)
            continue;
        served.takeRequests();
        tree().release(tree().open(listed->node, O_RDONLY));
        idle();
        if (entry.name == "shown")
            EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /shown", "open read /kept", "release /kept"));
        else
            EXPECT_THAT(served.takeRequests(), ElementsAre("open read /kept", "release /kept"));
        tree().forget(listed->node, 1);
    }
    tree().releaseDirectory(opened);
}

TEST_F(FileTreePaths, whatLiesInAListedDirectoryIsFoundBeneathThePathThatWasReported) {
    served.putDirectory("/folder");
    served.putDirectory("/place");
    served.put("/place/file", "in its place");
    served.oddPaths = {{"/folder", "/place"}};
    listLong();
    EXPECT_EQ(read(open("/folder/file", O_RDONLY)), "in its place");
}

TEST_F(FileTreePaths, aFileThatWasRenamedIsLookedUpAgain) {
    const OpenFileID file = open("/shown", O_RDONLY);
    tree().rename(rootNodeID, "shown", rootNodeID, "new", 0);
    served.oddPaths["/new"] = "/elsewhere";
    served.put("/elsewhere", "text");
    served.takeRequests();
    EXPECT_EQ(read(file, 0, 4), "text");
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /new", "open read /elsewhere", "read /elsewhere 0+4"));
}

TEST_F(FileTreePaths, aFileReportedByItsOwnPathIsNotLookedUpAfterARename) {
    const OpenFileID file = open("/kept", O_RDONLY);
    tree().rename(rootNodeID, "kept", rootNodeID, "new", 0);
    served.takeRequests();
    EXPECT_EQ(read(file), "text");
    EXPECT_THAT(served.takeRequests(), ElementsAre("open read /new", "read /new 0+4096"));
}

} // namespace
} // namespace fusehosttests
