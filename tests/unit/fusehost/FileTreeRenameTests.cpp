#include "FileTreeTest.h"

#include <cstdio>
#include <functional>

namespace fusehosttests {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class FileTreeRename : public FileTreeTest {
protected:
    /// What was replaced is left under a hidden name, beside the new file, and the log tells which.
    void expectOldFileUnderTheNameInTheLog() {
        const std::vector<std::string> names = served.names("/");
        ASSERT_EQ(names.size(), 2U);
        EXPECT_EQ(served.bytes("/" + names[0]), "old");
        EXPECT_THAT(log.texts(), ElementsAre(HasSubstr(names[0])));
        remove("/" + names[0]);
    }
};

TEST_F(FileTreeRename, keepsTheNode) {
    served.put("/a", "x");
    const NodeID file = node("/a");
    rename("/a", "/b");
    EXPECT_EQ(node("/b"), file);
    EXPECT_EQ(errnoOf([&] { lookup("/a"); }), ENOENT);
}

TEST_F(FileTreeRename, ofAFileThatTheKernelDoesNotKnow) {
    served.put("/a", "x");
    rename("/a", "/b");
    EXPECT_EQ(served.bytes("/b"), "x");
    EXPECT_FALSE(served.has("/a"));
}

TEST_F(FileTreeRename, ofAFileThatTheKernelDoesNotKnowEndsTheOneThatIsReplaced) {
    served.put("/a", "new");
    served.put("/b", "old");
    const NodeID replaced = node("/b");
    rename("/a", "/b");
    EXPECT_NE(node("/b"), replaced);
}

TEST_F(FileTreeRename, ofAMissingFileIsENOENT) {
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), ENOENT);
}

TEST_F(FileTreeRename, anOpenFileGoesOnUnderItsNewName) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    rename("/a", "/b");
    EXPECT_EQ(read(file), "0123");
    write(file, 4, "45");
    EXPECT_EQ(tree().getAttributes(node("/b")).st_size, 6);
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/b"), "012345");
    EXPECT_FALSE(served.has("/a"));
}

TEST_F(FileTreeRename, anOpenFileGoesOnWhenAParentOfAnyDepthIsRenamed) {
    for (const char* path : {"/a", "/a/b", "/a/b/c"})
        makeDirectory(path);
    const OpenFileID file = create("/a/b/c/file");
    write(file, 0, "0123");
    rename("/a/b", "/moved");
    write(file, 4, "45");
    EXPECT_EQ(read(file), "012345");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/moved/c/file"), "012345");
    EXPECT_FALSE(served.has("/a/b"));
}

TEST_F(FileTreeRename, aNewFileAtTheOldNameIsAnotherFile) {
    const OpenFileID old = create("/a");
    write(old, 0, "old");
    rename("/a", "/b");
    const OpenFileID fresh = create("/a");
    write(fresh, 0, "fresh");
    write(old, 3, "er");
    EXPECT_EQ(read(fresh), "fresh");
    EXPECT_EQ(served.bytes("/a"), "fresh");
    EXPECT_EQ(served.bytes("/b"), "older");
}

TEST_F(FileTreeRename, aNewDirectoryAtTheOldNameIsAnotherDirectory) {
    makeDirectory("/a");
    const OpenFileID old = create("/a/file");
    write(old, 0, "old");
    rename("/a", "/b");
    makeDirectory("/a");
    const OpenFileID fresh = create("/a/file");
    write(fresh, 0, "fresh");
    write(old, 3, "er");
    EXPECT_EQ(served.bytes("/a/file"), "fresh");
    EXPECT_EQ(served.bytes("/b/file"), "older");
}

TEST_F(FileTreeRename, whatIsWrittenNeverGoesToTheOldNameThoughGivingBackFails) {
    makeDirectory("/a");
    served.put("/a/file", "abc");
    const OpenFileID old = open("/a/file", O_RDWR);
    EXPECT_EQ(read(old), "abc");
    write(old, 0, "A");
    served.before = refuseOnce("release", posixErrno::EIO_); // the first of two handles
    rename("/a", "/b");
    makeDirectory("/a");
    const OpenFileID fresh = create("/a/file");
    write(fresh, 0, "fresh");
    EXPECT_EQ(served.bytes("/a/file"), "fresh");
    EXPECT_EQ(served.bytes("/b/file"), "Abc");
}

TEST_F(FileTreeRename, twoOpenFilesAreSwappedThroughAThirdName) {
    const OpenFileID one = create("/a");
    const OpenFileID two = create("/b");
    write(one, 0, "one");
    write(two, 0, "two");
    rename("/a", "/c");
    rename("/b", "/a");
    rename("/c", "/b");
    write(one, 3, "!");
    write(two, 3, "?");
    EXPECT_EQ(served.bytes("/b"), "one!");
    EXPECT_EQ(served.bytes("/a"), "two?");
}

TEST_F(FileTreeRename, ontoAnExistingFileReplacesItInOneRequest) {
    served.put("/a", "new");
    served.put("/b", "old");
    const NodeID source = node("/a");
    const NodeID target = node("/b");
    served.takeRequests();
    tree().rename(rootNodeID, "a", rootNodeID, "b", 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("rename /a /b"));
    EXPECT_EQ(served.bytes("/b"), "new");
    EXPECT_EQ(node("/b"), source);
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(target); }), ESTALE);
}

/// What helpers that cannot replace have been seen to say.
constexpr std::int32_t refusals[] = {posixErrno::EEXIST_, posixErrno::EIO_, posixErrno::EPERM_, posixErrno::ENOTEMPTY_,
                                     posixErrno::EINVAL_};

TEST_F(FileTreeRename, withAHelperThatRefusesIsDoneOnceTheReplacedFileIsSetAside) {
    served.renameReplaces = false;
    for (const std::int32_t refusal : refusals) {
        served.renameRefusal = refusal;
        served.put("/a", "new");
        served.put("/b", "old");
        const NodeID source = node("/a");
        const NodeID target = node("/b");
        served.takeRequests();
        tree().rename(rootNodeID, "a", rootNodeID, "b", 0);
        const std::vector<std::string> requests = served.takeRequests();
        ASSERT_EQ(requests.size(), 5U);
        EXPECT_EQ(requests[1], "getattr /b");
        EXPECT_THAT(requests[2], StartsWith("rename /b /.kemvi-hidden-"));
        EXPECT_EQ(requests[3], "rename /a /b");
        EXPECT_THAT(requests[4], StartsWith("unlink /.kemvi-hidden-"));
        EXPECT_THAT(served.names("/"), ElementsAre("b"));
        EXPECT_EQ(served.bytes("/b"), "new");
        EXPECT_EQ(node("/b"), source);
        EXPECT_EQ(errnoOf([&] { tree().getAttributes(target); }), ESTALE);
    }
}

TEST_F(FileTreeRename, thatFailsWithNothingInTheWayIsNotTriedAgain) {
    served.put("/a", "new");
    node("/a");
    for (const std::int32_t refusal : refusals) {
        served.before = refuseAlways("rename", refusal);
        served.takeRequests();
        EXPECT_NE(errnoOf([&] { tree().rename(rootNodeID, "a", rootNodeID, "b", 0); }), 0);
        EXPECT_THAT(served.takeRequests(), ElementsAre("rename /a /b", "getattr /b"));
        EXPECT_EQ(served.bytes("/a"), "new");
    }
}

TEST_F(FileTreeRename, thatIsForbiddenIsNotTriedAgain) {
    served.put("/a", "new");
    served.put("/b", "old");
    node("/a");
    node("/b");
    served.before = refuseAlways("rename", posixErrno::EACCES_);
    served.takeRequests();
    EXPECT_EQ(errnoOf([&] { tree().rename(rootNodeID, "a", rootNodeID, "b", 0); }), EACCES);
    EXPECT_THAT(served.takeRequests(), ElementsAre("rename /a /b"));
}

TEST_F(FileTreeRename, ontoAFileThatTheKernelDoesNotKnowWithAHelperThatRefuses) {
    served.renameReplaces = false;
    served.put("/a", "new");
    served.put("/b", "old");
    tree().rename(rootNodeID, "a", rootNodeID, "b", 0);
    EXPECT_THAT(served.names("/"), ElementsAre("b"));
    EXPECT_EQ(served.bytes("/b"), "new");
}

/// Refuses the requests of one kind whose numbers, from 1 on, are in `refused`.
std::function<void(const std::string&)> refuse(std::string kind, std::set<int> refused, std::int32_t error) {
    return [=, count = 0](const std::string& request) mutable {
        if (request.starts_with(kind) && refused.count(++count) != 0)
            foundation::throwPosix(error);
    };
}

TEST_F(FileTreeRename, keepsBothFilesWhichStepEverFailsWithAHelperThatRefuses) {
    served.renameReplaces = false;
    served.put("/a", "new");
    served.put("/b", "old");
    const NodeID source = node("/a");
    const NodeID target = node("/b");
    for (const std::int32_t refusal : refusals) {
        served.renameRefusal = refusal;
        for (const int step : {2, 3}) { // the first is the one that the helper refuses by itself
            served.before = refuse("rename", {step}, posixErrno::EACCES_);
            EXPECT_EQ(errnoOf([&] { tree().rename(rootNodeID, "a", rootNodeID, "b", 0); }), EACCES);
            EXPECT_THAT(served.names("/"), ElementsAre("a", "b"));
            EXPECT_EQ(served.bytes("/a"), "new");
            EXPECT_EQ(served.bytes("/b"), "old");
            EXPECT_EQ(tree().getAttributes(source).st_size, 3);
            EXPECT_EQ(tree().getAttributes(target).st_size, 3);
            EXPECT_EQ(node("/a"), source);
            EXPECT_EQ(node("/b"), target);
        }
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

/// Fails once, after the work is done, a request that begins so.
std::function<void(const std::string&)> failOnceDone(std::string request) {
    return refuseOnce(std::move(request), posixErrno::EIO_);
}

TEST_F(FileTreeRename, thatTheHelperFailsAfterTheWorkLosesNothing) {
    served.put("/a", "new");
    served.put("/b", "old");
    served.after = failOnceDone("rename /a");
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EIO);
    EXPECT_THAT(served.names("/"), ElementsAre("b"));
    EXPECT_EQ(served.bytes("/b"), "new");
    EXPECT_EQ(read(open("/b", O_RDONLY)), "new");
}

TEST_F(FileTreeRename, thatTheHelperFailsAfterTheWorkDoesNotPutAnOpenTargetOverTheNewFile) {
    served.put("/a", "new");
    const OpenFileID target = create("/b");
    write(target, 0, "old");
    served.after = failOnceDone("rename /a");
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EIO);
    EXPECT_EQ(served.bytes("/b"), "new");
    EXPECT_EQ(read(target), "old");
    close(target);
    expectOldFileUnderTheNameInTheLog();
}

TEST_F(FileTreeRename, replacesAnOpenFileThoughSettingItAsideFailsAfterTheWork) {
    served.put("/a", "new");
    const OpenFileID target = create("/b");
    write(target, 0, "old");
    served.after = failOnceDone("rename /b");
    rename("/a", "/b");
    EXPECT_EQ(served.bytes("/b"), "new");
    EXPECT_EQ(read(target), "old");
    EXPECT_EQ(close(target), 0);
    EXPECT_THAT(served.names("/"), ElementsAre("b"));
}

TEST_F(FileTreeRename, keepsAFileThatCannotBePutBackInSightAndNamesItInTheLog) {
    served.renameReplaces = false;
    served.put("/a", "new");
    served.put("/b", "old");
    served.before = refuse("rename", {3, 4}, posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EACCES);
    EXPECT_EQ(served.bytes("/a"), "new");
    const std::vector<std::string> names = served.names("/");
    ASSERT_EQ(names.size(), 2U);
    EXPECT_THAT(names[0], StartsWith(".kemvi-hidden-"));
    EXPECT_EQ(served.bytes("/" + names[0]), "old");
    EXPECT_THAT(list("/"), ElementsAre(".", "..", names[0], "a"));
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr(names[0])));
    rename("/" + names[0], "/b");
    EXPECT_EQ(served.bytes("/b"), "old");
}

TEST_F(FileTreeRename, isDoneThoughTheReplacedFileCannotBeRemovedAndTheLogNamesIt) {
    served.renameReplaces = false;
    served.put("/a", "new");
    served.put("/b", "old");
    served.before = refuse("unlink", {1}, posixErrno::EACCES_);
    rename("/a", "/b");
    EXPECT_EQ(served.bytes("/b"), "new");
    expectOldFileUnderTheNameInTheLog();
}

TEST_F(FileTreeRename, toTheSameNameInOtherCaseLosesNothingWithAHelperThatRefuses) {
    served.foldsCase = true;
    served.put("/readme", "x");
    served.before = refuseOnce("rename", posixErrno::EEXIST_);
    EXPECT_EQ(errnoOf([&] { tree().rename(rootNodeID, "readme", rootNodeID, "README", 0); }), EEXIST);
    EXPECT_THAT(served.names("/"), ElementsAre("readme"));
    EXPECT_EQ(served.bytes("/readme"), "x");
}

TEST_F(FileTreeRename, ontoAnOpenFileLetsThatLiveOn) {
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        const OpenFileID target = create("/b");
        write(target, 0, "old");
        const OpenFileID source = create("/a");
        write(source, 0, "new");
        rename("/a", "/b");
        EXPECT_EQ(read(target), "old");
        write(target, 3, "er");
        EXPECT_EQ(read(target), "older");
        EXPECT_EQ(read(source), "new");
        EXPECT_EQ(served.bytes("/b"), "new");
        EXPECT_EQ(close(target), 0);
        EXPECT_EQ(close(source), 0);
        EXPECT_THAT(served.names("/"), ElementsAre("b"));
        remove("/b");
    }
}

TEST_F(FileTreeRename, thatFailsPutsAnOpenTargetBack) {
    served.put("/a", "new");
    const OpenFileID target = create("/b");
    write(target, 0, "old");
    served.before = refuseOnce("rename /a", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EACCES);
    EXPECT_EQ(served.bytes("/b"), "old");
    EXPECT_EQ(read(target), "old");
    EXPECT_EQ(close(target), 0);
    EXPECT_THAT(served.names("/"), ElementsAre("a", "b")) << "closing it removed nothing";
}

TEST_F(FileTreeRename, thatFailsAndCannotPutTheOpenTargetBackLosesNothing) {
    served.put("/a", "new");
    const OpenFileID target = create("/b");
    write(target, 0, "old");
    served.before = [count = 0](const std::string& request) mutable {
        if (request.starts_with("rename") && count++ > 0)
            foundation::throwPosix(posixErrno::EIO_);
    };
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EIO);
    served.before = {};
    EXPECT_EQ(close(target), 0);
    const std::vector<std::string> visible = list("/");
    const auto kept = std::find_if(visible.begin(), visible.end(),
                                   [](const std::string& name) { return name.starts_with(".kemvi-hidden"); });
    ASSERT_NE(kept, visible.end()) << "the user must be able to find it";
    EXPECT_EQ(served.bytes("/" + *kept), "old");
    EXPECT_THAT(log.texts(), testing::Contains(testing::HasSubstr(*kept)));
    rename("/" + *kept, "/b");
}

TEST_F(FileTreeRename, ontoItselfChangesNothing) {
    served.put("/a", "x");
    node("/a");
    rename("/a", "/a");
    EXPECT_EQ(served.bytes("/a"), "x");
}

TEST_F(FileTreeRename, withNoReplaceOntoAnExistingNameIsEEXIST) {
    served.put("/a", "new");
    served.put("/b", "old");
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b", RENAME_NOREPLACE); }), EEXIST);
    EXPECT_EQ(served.bytes("/b"), "old");
    EXPECT_EQ(served.bytes("/a"), "new");
    rename("/a", "/c", RENAME_NOREPLACE);
    EXPECT_EQ(served.bytes("/c"), "new");
}

TEST_F(FileTreeRename, withAnyOtherFlagIsEINVAL) {
    served.put("/a", "");
    served.put("/b", "");
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b", RENAME_EXCHANGE); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { rename("/a", "/c", 4); }), EINVAL);
}

TEST_F(FileTreeRename, aNameThatWasSeenMissingBeforeTheRenameIsNotFreeAfterIt) {
    served.put("/a", "x");
    EXPECT_EQ(errnoOf([&] { lookup("/b"); }), ENOENT);
    tree().rename(rootNodeID, "a", rootNodeID, "b", 0);
    EXPECT_EQ(read(create("/b")), "x");
}

TEST_F(FileTreeRename, ofADirectoryOntoAnEmptyOneReplacesIt) {
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        makeDirectory("/d");
        create("/d/file");
        makeDirectory("/e");
        rename("/d", "/e");
        EXPECT_TRUE(served.has("/e/file"));
        EXPECT_FALSE(served.has("/d"));
        remove("/e/file");
        served.erase("/e");
        EXPECT_EQ(errnoOf([&] { lookup("/e"); }), ENOENT);
        for (const std::string& name : served.names("/"))
            served.erase("/" + name);
    }
}

TEST_F(FileTreeRename, ofADirectoryOntoOneWithEntriesIsENOTEMPTYWhateverTheHelperWouldDo) {
    served.unlinkIsRecursive = true;
    served.renameReplacesAnything = true;
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        served.putDirectory("/d");
        served.putDirectory("/e");
        served.put("/e/file", "precious");
        EXPECT_EQ(errnoOf([&] { rename("/d", "/e"); }), ENOTEMPTY);
        EXPECT_EQ(served.bytes("/e/file"), "precious");
    }
}

TEST_F(FileTreeRename, ofADirectoryOntoAFileIsENOTDIRWhateverTheHelperWouldDo) {
    served.renameReplacesAnything = true;
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        served.putDirectory("/d");
        served.put("/a", "precious");
        EXPECT_EQ(errnoOf([&] { rename("/d", "/a"); }), ENOTDIR);
        EXPECT_EQ(served.bytes("/a"), "precious");
    }
}

TEST_F(FileTreeRename, ofAFileOntoAKnownDirectoryIsEISDIRWhateverTheHelperWouldDo) {
    served.unlinkIsRecursive = true;
    served.renameReplacesAnything = true;
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        served.put("/a", "x");
        served.putDirectory("/d");
        served.put("/d/file", "precious");
        node("/d");
        EXPECT_EQ(errnoOf([&] { rename("/a", "/d"); }), EISDIR);
        EXPECT_EQ(served.bytes("/d/file"), "precious");
    }
}

TEST_F(FileTreeRename, ofADirectoryToAFreeNameSeenMissingIsOneRequest) {
    served.putDirectory("/d");
    node("/d");
    EXPECT_EQ(errnoOf([&] { lookup("/e"); }), ENOENT);
    served.takeRequests();
    tree().rename(rootNodeID, "d", rootNodeID, "e", 0);
    EXPECT_THAT(served.takeRequests(), ElementsAre("rename /d /e"));
}

TEST_F(FileTreeRename, changesTheCaseOfANameWhereCaseDoesNotCount) {
    served.foldsCase = true;
    served.put("/readme", "x");
    const NodeID file = node("/readme");
    tree().rename(rootNodeID, "readme", rootNodeID, "README", 0);
    EXPECT_THAT(served.names("/"), ElementsAre("README"));
    EXPECT_EQ(node("/README"), file);
}

TEST_F(FileTreeRename, thatFailsKeepsWhatIsOpen) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    served.before = refuseOnce("rename", posixErrno::EXDEV_);
    EXPECT_EQ(errnoOf([&] { rename("/a", "/b"); }), EXDEV);
    EXPECT_EQ(read(file), "0123");
    write(file, 4, "4");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "01234");
}

TEST_F(FileTreeRename, ofAFileThatBecameADirectoryBehindTheMount) {
    served.put("/a", "");
    const NodeID file = node("/a");
    served.erase("/a");
    served.putDirectory("/a");
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(file); }), ESTALE);
    rename("/a", "/b");
    EXPECT_TRUE(S_ISDIR(lookup("/b").attributes.st_mode));
}

} // namespace
} // namespace fusehosttests
