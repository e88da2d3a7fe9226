#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

class FileTreeNames : public FileTreeTest {};

TEST_F(FileTreeNames, createMakesAnEmptyFileOpenForUse) {
    const OpenFileID file = create("/a");
    EXPECT_EQ(served.bytes("/a"), "");
    write(file, 0, "x");
    EXPECT_EQ(tree().getAttributes(node("/a")).st_size, 1);
}

TEST_F(FileTreeNames, createOfAnExistingFileKeepsItsBytes) {
    served.put("/a", "0123");
    const OpenFileID file = create("/a", O_RDWR);
    EXPECT_EQ(read(file), "0123");
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeNames, createOfAnExistingFileEmptiesItOnlyWhenAsked) {
    served.put("/a", "0123");
    const auto [entry, file] = tree().create(rootNodeID, "a", O_RDWR | O_CREAT | O_TRUNC, 0644);
    EXPECT_EQ(served.bytes("/a"), "");
    EXPECT_EQ(entry.attributes.st_size, 0);
    const struct stat now = tree().getAttributes(entry.node);
    EXPECT_EQ(entry.attributes.st_mtim.tv_sec, now.st_mtim.tv_sec) << "the time of the emptying, not the one before";
    tree().release(file);
    tree().forget(entry.node, 1);
}

TEST_F(FileTreeNames, exclusiveCreateOfAnExistingFileIsEEXIST) {
    served.put("/a", "0123");
    EXPECT_EQ(errnoOf([&] { create("/a", O_RDWR | O_EXCL); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { create("/a", O_RDWR | O_EXCL | O_TRUNC); }), EEXIST);
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeNames, createOverADirectoryIsEISDIR) {
    served.putDirectory("/d");
    EXPECT_EQ(errnoOf([&] { create("/d", O_RDWR); }), EISDIR);
}

TEST_F(FileTreeNames, aCreateThatCannotOpenLeavesNoNode) {
    served.put("/a", "0123");
    served.before = refuseOnce("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { create("/a", O_WRONLY); }), EACCES);
    EXPECT_EQ(tree().nodes().size(), 1U);
}

TEST_F(FileTreeNames, createRightAfterALookupAsksOnlyOnceWhetherTheNameIsFree) {
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
    served.takeRequests();
    create("/a");
    EXPECT_THAT(served.takeRequests(), ElementsAre("open write,create,truncate /a", "release /a", "getattr /a"));
}

TEST_F(FileTreeNames, createAsksAgainWhenAnotherNameWasLookedUpBetween) {
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { lookup("/b"); }), ENOENT);
    served.put("/a", "0123");
    const OpenFileID file = create("/a");
    EXPECT_EQ(read(file), "0123");
}

TEST_F(FileTreeNames, aCreateThatFailsAfterItHasOpenedLeavesNothingOpen) {
    served.put("/a", "0123");
    bool opened = false;
    served.before = [&](const std::string& request) {
        if (opened && request == "getattr /a")
            foundation::throwPosix(posixErrno::EIO_);
        opened |= request == "open write,create /a";
    };
    EXPECT_EQ(errnoOf([&] { create("/a", O_WRONLY | O_TRUNC); }), EIO);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_EQ(tree().nodes().size(), 1U);
}

TEST_F(FileTreeNames, withTimeoutsOfZeroCreateTrustsNoEarlierLookup) {
    options.entryTimeout = fusehost::Seconds(0);
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
    served.put("/a", "0123");
    EXPECT_EQ(read(create("/a")), "0123");
}

TEST_F(FileTreeNames, whereTheKernelRemembersAbsentNamesCreateTrustsNoEarlierLookup) {
    options.negativeTimeout = fusehost::Seconds(10);
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
    served.put("/a", "0123");
    EXPECT_EQ(read(create("/a")), "0123");
}

TEST_F(FileTreeNames, aFileMadeAtTheNameOfALostOneIsAnotherFile) {
    const OpenFileID lost = create("/a");
    write(lost, 0, "lost");
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
    const OpenFileID fresh = create("/a");
    EXPECT_EQ(errnoOf([&] { write(lost, 0, "LOST"); }), ESTALE);
    EXPECT_EQ(read(fresh), "");
    EXPECT_EQ(served.bytes("/a"), "");
}

TEST_F(FileTreeNames, createTellsTheHelperOfAccessThatIsWithheld) {
    create("/private", O_RDWR, 0600);
    EXPECT_EQ(served.mode("/private"), 0600U);
    create("/program", O_RDWR, 0755);
    EXPECT_EQ(served.mode("/program"), 0755U);
    makeDirectory("/closed", 0700);
    EXPECT_EQ(served.mode("/closed"), 0700U);
}

TEST_F(FileTreeNames, createWithTheUsualModeSendsNone) {
    create("/a", O_RDWR, 0644);
    create("/b", O_RDWR, 0666);
    create("/c", O_RDWR, 0444);
    makeDirectory("/d", 0755);
    for (const std::string& request : served.takeRequests())
        EXPECT_THAT(request, testing::Not(testing::StartsWith("chmod")));
}

TEST_F(FileTreeNames, aFileMadeReadOnlyCanBeWrittenThroughTheDescriptorThatMadeIt) {
    const OpenFileID file = create("/program", O_WRONLY, 0555);
    write(file, 0, "binary");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/program"), "binary");
    EXPECT_EQ(served.mode("/program") & 0111U, 0111U);
}

TEST_F(FileTreeNames, aHelperThatTakesNoModesStillCreates) {
    served.before = refuseAlways("chmod", posixErrno::ENOSYS_);
    const OpenFileID file = create("/a", O_RDWR, 0600);
    write(file, 0, "x");
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeNames, aCreateThatFailsIsReported) {
    served.before = refuseOnce("open write,create,truncate", posixErrno::ENOSPC_);
    EXPECT_EQ(errnoOf([&] { create("/a"); }), ENOSPC);
    EXPECT_EQ(tree().nodes().size(), 1U);
}

TEST_F(FileTreeNames, aNameThatIsTooLongIsENAMETOOLONG) {
    const std::string name(256, 'x');
    served.put("/a", "");
    EXPECT_EQ(errnoOf([&] { create("/" + name); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { makeNode("/" + name); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { makeDirectory("/" + name); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { rename("/a", "/" + name); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { remove("/" + name); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { tree().makeSymbolicLink(rootNodeID, name, "x"); }), ENAMETOOLONG);
    EXPECT_EQ(errnoOf([&] { tree().makeLink(node("/a"), rootNodeID, name); }), ENAMETOOLONG);
}

TEST_F(FileTreeNames, aNameThatIsNotUTF8IsEINVAL) {
    EXPECT_EQ(errnoOf([&] { create("/caf\xE9"); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { remove("/caf\xE9"); }), EINVAL);
}

TEST_F(FileTreeNames, mknodMakesFilesAndNothingElse) {
    makeNode("/a");
    EXPECT_TRUE(served.has("/a"));
    makeNode("/b", 0600);
    EXPECT_TRUE(served.has("/b"));
    served.put("/a", "0123");
    EXPECT_EQ(errnoOf([&] { makeNode("/a"); }), EEXIST);
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_EQ(errnoOf([&] { makeNode("/fifo", S_IFIFO | 0644); }), EOPNOTSUPP);
    EXPECT_EQ(errnoOf([&] { makeNode("/disk", S_IFBLK | 0644); }), EOPNOTSUPP);
    EXPECT_EQ(errnoOf([&] { makeNode("/sock", S_IFSOCK | 0644); }), EOPNOTSUPP);
    EXPECT_THAT(served.names("/"), ElementsAre("a", "b"));
}

TEST_F(FileTreeNames, linksAreTheVolumesENOTSUP) {
    served.put("/a", "");
    EXPECT_EQ(errnoOf([&] { tree().makeSymbolicLink(rootNodeID, "l", "a"); }), EOPNOTSUPP);
    EXPECT_EQ(errnoOf([&] { tree().makeLink(node("/a"), rootNodeID, "l"); }), EOPNOTSUPP);
}

TEST_F(FileTreeNames, mkdirMakesADirectoryOnce) {
    makeDirectory("/d");
    EXPECT_EQ(errnoOf([&] { makeDirectory("/d"); }), EEXIST);
    makeDirectory("/d/e");
    EXPECT_TRUE(S_ISDIR(lookup("/d/e").attributes.st_mode));
}

TEST_F(FileTreeNames, aDirectoryMadeWhereAFileWasIsANewNode) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.erase("/a");
    makeDirectory("/a");
    EXPECT_NE(node("/a"), file);
}

TEST_F(FileTreeNames, removeTakesTheFileAway) {
    served.put("/a", "");
    const NodeID file = node("/a");
    remove("/a");
    EXPECT_FALSE(served.has("/a"));
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { remove("/a"); }), ENOENT);
}

TEST_F(FileTreeNames, removeOfADirectoryIsEISDIR) {
    served.putDirectory("/d");
    EXPECT_EQ(errnoOf([&] { remove("/d"); }), EISDIR);
    EXPECT_TRUE(served.has("/d"));
}

TEST_F(FileTreeNames, aRemovalThatFailsKeepsTheNode) {
    served.put("/a", "x");
    const NodeID file = node("/a");
    served.before = refuseOnce("unlink", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { remove("/a"); }), EACCES);
    EXPECT_EQ(tree().getAttributes(file).st_size, 1);
}

TEST_F(FileTreeNames, rmdirRefusesADirectoryWithEntriesThoughTheHelperWouldRemoveThemAll) {
    served.unlinkIsRecursive = true;
    served.putDirectory("/d");
    served.put("/d/a", "precious");
    EXPECT_EQ(errnoOf([&] { removeDirectory("/d"); }), ENOTEMPTY);
    EXPECT_EQ(served.bytes("/d/a"), "precious");
    served.erase("/d/a");
    removeDirectory("/d");
    EXPECT_FALSE(served.has("/d"));
}

TEST_F(FileTreeNames, rmdirRefusesADirectoryWhoseOnlyEntryHasNoUsableName) {
    served.unlinkIsRecursive = true;
    served.putDirectory("/d");
    served.put("/d/a", "precious");
    served.oddNames["/d/a"] = "x/y";
    EXPECT_EQ(errnoOf([&] { removeDirectory("/d"); }), ENOTEMPTY);
    EXPECT_TRUE(served.has("/d/a"));
}

TEST_F(FileTreeNames, rmdirOfAFileIsENOTDIR) {
    served.put("/a", "");
    EXPECT_EQ(errnoOf([&] { removeDirectory("/a"); }), ENOTDIR);
    EXPECT_EQ(errnoOf([&] { removeDirectory("/missing"); }), ENOENT);
}

TEST_F(FileTreeNames, rmdirThatCannotListRemovesNothing) {
    served.unlinkIsRecursive = true;
    served.putDirectory("/d");
    served.before = refuseOnce("readdir", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { removeDirectory("/d"); }), EACCES);
    EXPECT_TRUE(served.has("/d"));
}

TEST_F(FileTreeNames, whatIsAskedInARemovedDirectoryIsESTALE) {
    served.putDirectory("/d");
    const NodeID directory = node("/d");
    removeDirectory("/d");
    EXPECT_EQ(errnoOf([&] { tree().lookup(directory, "a"); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { tree().create(directory, "a", O_RDWR, 0644); }), ESTALE);
    EXPECT_FALSE(served.has("/d"));
}

} // namespace
} // namespace fusehosttests
