#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

class FileTreeLookup : public FileTreeTest {};

TEST_F(FileTreeLookup, isOneRequest) {
    served.put("/a", "12345");
    const TreeEntry entry = lookup("/a");
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
    EXPECT_EQ(entry.attributes.st_size, 5);
    EXPECT_TRUE(S_ISREG(entry.attributes.st_mode));
    EXPECT_NE(entry.node, rootNodeID);
}

TEST_F(FileTreeLookup, ofTheSameNameIsTheSameNodeWithFreshAttributes) {
    served.put("/a", "1");
    const NodeID first = node("/a");
    served.append("/a", "23");
    const TreeEntry again = lookup("/a");
    EXPECT_EQ(again.node, first);
    EXPECT_EQ(again.attributes.st_size, 3);
}

TEST_F(FileTreeLookup, ofAMissingNameIsENOENT) {
    EXPECT_EQ(errnoOf([&] { tree().lookup(rootNodeID, "missing"); }), ENOENT);
}

TEST_F(FileTreeLookup, inAFileIsENOTDIR) {
    served.put("/a", "");
    const NodeID file = node("/a");
    EXPECT_EQ(errnoOf([&] { tree().lookup(file, "b"); }), ENOTDIR);
}

TEST_F(FileTreeLookup, aFileInWhosePlaceThereIsADirectoryNowIsESTALEAndIsNotChanged) {
    served.put("/a", "12345");
    const NodeID file = node("/a");
    served.erase("/a");
    served.putDirectory("/a");
    served.takeRequests();
    fusehost::AttributeChange change;
    change.size = 3;
    EXPECT_EQ(errnoOf([&] { tree().setAttributes(file, change); }), ESTALE);
    EXPECT_THAT(served.takeRequests(), testing::Each(testing::StartsWith("getattr")));
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    EXPECT_TRUE(S_ISDIR(lookup("/a").attributes.st_mode));
}

TEST_F(FileTreeLookup, inAnUnknownNodeIsESTALE) {
    EXPECT_EQ(errnoOf([&] { tree().lookup(4711, "a"); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(4711); }), ESTALE);
}

TEST_F(FileTreeLookup, ofANameThatIsTooLongIsENAMETOOLONGAndAsksNobody) {
    EXPECT_EQ(errnoOf([&] { tree().lookup(rootNodeID, std::string(256, 'x')); }), ENAMETOOLONG);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    served.put("/" + std::string(255, 'x'), "");
    EXPECT_NE(node("/" + std::string(255, 'x')), 0U);
}

TEST_F(FileTreeLookup, ofANameThatIsNotUTF8IsEINVAL) {
    EXPECT_EQ(errnoOf([&] { tree().lookup(rootNodeID, "caf\xE9"); }), EINVAL);
}

TEST_F(FileTreeLookup, passesTheVolumesErrorOn) {
    served.put("/a", "");
    served.before = refuseOnce("getattr /a", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { tree().lookup(rootNodeID, "a"); }), EACCES);
}

TEST_F(FileTreeLookup, findsANewNodeWhenTheTypeHasChanged) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.erase("/a");
    served.putDirectory("/a");
    const TreeEntry directory = lookup("/a");
    EXPECT_NE(directory.node, file);
    EXPECT_TRUE(S_ISDIR(directory.attributes.st_mode));
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
}

TEST_F(FileTreeLookup, findsANewNodeAfterTheNameWasSeenMissing) {
    served.put("/a", "");
    const NodeID before = node("/a");
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { tree().lookup(rootNodeID, "a"); }), ENOENT);
    served.put("/a", "");
    EXPECT_NE(node("/a"), before);
}

TEST_F(FileTreeLookup, namesTheNodeAsTheVolumeStoresIt) {
    served.foldsCase = true;
    served.put("/Readme", "text");
    const NodeID stored = node("/Readme");
    EXPECT_EQ(node("/README"), stored);
    EXPECT_EQ(node("/readme"), stored);
}

TEST_F(FileTreeLookup, anotherSpellingOfAnOpenFilesNameLosesNoHandle) {
    served.foldsCase = true;
    served.put("/Readme", "text");
    const OpenFileID file = open("/Readme", O_RDONLY);
    lookup("/README");
    EXPECT_EQ(read(file), "text");
    close(file);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(FileTreeLookup, keepsTheNameAskedForWhereTheStoredOneIsNoName) {
    served.put("/a", "a");
    served.put("/b", "b");
    for (const std::string& odd : {std::string(), std::string("."), std::string(".."), std::string("x/y"),
                                   std::string("x\0y", 3), std::string(256, 'n')}) {
        served.oddNames = {{"/a", odd}, {"/b", odd}};
        EXPECT_NE(node("/a"), node("/b")) << "stored name \"" << odd << "\"";
    }
    EXPECT_EQ(read(open("/a", O_RDONLY)), "a");
}

TEST_F(FileTreeLookup, aForgottenNodeIsReclaimedAndUnknown) {
    served.put("/a", "");
    const NodeID file = node("/a");
    forget(file);
    EXPECT_EQ(volume->reclaimed(), 1);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
}

TEST_F(FileTreeLookup, everyLookupCountsOneReference) {
    served.put("/a", "");
    const NodeID file = node("/a");
    tree().lookup(rootNodeID, "a");
    tree().lookup(rootNodeID, "a");
    tree().forget(file, 2);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), 0);
}

TEST_F(FileTreeLookup, attributesAreAskedForAnew) {
    served.put("/a", "1");
    const NodeID file = node("/a");
    served.append("/a", "234");
    EXPECT_EQ(tree().getAttributes(file).st_size, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a", "getattr /a"));
}

TEST_F(FileTreeLookup, attributesOfAVanishedFileAreESTALESoThatTheKernelLooksAgain) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE) << "once gone, always gone";
}

TEST_F(FileTreeLookup, theRootsAttributesComeFromTheVolumeWithoutARequest) {
    EXPECT_TRUE(S_ISDIR(tree().getAttributes(rootNodeID).st_mode));
    EXPECT_EQ(tree().getAttributes(rootNodeID).st_ino, 2U);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(FileTreeLookup, aFileWhoseDirectoryVanishedIsESTALE) {
    served.putDirectory("/d");
    served.put("/d/a", "");
    const NodeID directory = node("/d");
    const NodeID file = node("/d/a");
    served.erase("/d");
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(directory); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().lookup(directory, "a"); }), ESTALE);
}

TEST_F(FileTreeLookup, deepPathsWork) {
    std::string path;
    for (int depth = 0; depth < 400; ++depth) {
        path += "/d";
        served.putDirectory(path);
    }
    NodeID at = rootNodeID;
    for (int depth = 0; depth < 400; ++depth) {
        const TreeEntry entry = tree().lookup(at, "d");
        tree().forget(at == rootNodeID ? 0 : at, 1); // the child keeps it alive
        at = entry.node;
    }
    EXPECT_TRUE(S_ISDIR(tree().getAttributes(at).st_mode));
    tree().forget(at, 1);
}

TEST_F(FileTreeLookup, readingALinkPassesTheVolumesErrorOn) {
    served.put("/a", "");
    EXPECT_EQ(errnoOf([&] { tree().readSymbolicLink(node("/a")); }), EINVAL);
}

TEST_F(FileTreeLookup, statisticsAreTheVolumes) {
    EXPECT_EQ(tree().statistics().totalBlocks, 1000U);
    EXPECT_EQ(tree().maximumNameLength(), 255U);
}

} // namespace
} // namespace fusehosttests
