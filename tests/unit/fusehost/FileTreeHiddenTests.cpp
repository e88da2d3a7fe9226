#include "FileTreeTest.h"

namespace fusehosttests {
namespace {

class FileTreeHidden : public FileTreeTest {
protected:
    /// The one name in the served directory that is ours.
    std::string hiddenName(const std::string& directory = "/") {
        std::string found;
        for (const std::string& name : served.names(directory))
            if (name.starts_with(".kemvi-hidden-"))
                found = name;
        return found;
    }
};

TEST_F(FileTreeHidden, aRemovedOpenFileLivesOnUntilItsLastClose) {
    const OpenFileID one = create("/a");
    const OpenFileID two = open("/a", O_RDONLY);
    write(one, 0, "0123");
    remove("/a");
    EXPECT_FALSE(served.has("/a"));
    write(one, 4, "45");
    EXPECT_EQ(read(two), "012345");
    EXPECT_EQ(close(one), 0);
    EXPECT_EQ(read(two), "012345");
    EXPECT_EQ(close(two), 0);
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(FileTreeHidden, itShowsNoLinkAndCanBeTruncated) {
    const OpenFileID file = create("/a");
    const NodeID id = node("/a");
    write(file, 0, "0123456789");
    remove("/a");
    EXPECT_EQ(tree().getAttributes(id).st_nlink, 0U);
    fusehost::AttributeChange change;
    change.size = 4;
    EXPECT_EQ(tree().setAttributes(id, change).st_size, 4);
    EXPECT_EQ(read(file), "0123");
}

TEST_F(FileTreeHidden, itIsNeitherListedNorFoundNorTouchedByName) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    remove("/a");
    const std::string name = hiddenName();
    ASSERT_FALSE(name.empty());
    served.put("/b", "x");
    EXPECT_THAT(list("/"), ElementsAre(".", "..", "b"));
    EXPECT_EQ(errnoOf([&] { lookup("/" + name); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { remove("/" + name); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { rename("/" + name, "/c"); }), ENOENT);
    EXPECT_EQ(errnoOf([&] { rename("/b", "/" + name); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { create("/" + name); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { makeNode("/" + name); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { makeDirectory("/" + name); }), EEXIST);
    EXPECT_EQ(read(file), "0123");
}

TEST_F(FileTreeHidden, aNewFileOfItsNameIsAnotherFile) {
    const OpenFileID old = create("/a");
    write(old, 0, "old");
    remove("/a");
    const OpenFileID fresh = create("/a");
    write(fresh, 0, "fresh");
    write(old, 3, "er");
    EXPECT_EQ(read(old), "older");
    EXPECT_EQ(read(fresh), "fresh");
    EXPECT_EQ(close(old), 0);
    EXPECT_EQ(served.bytes("/a"), "fresh");
}

TEST_F(FileTreeHidden, leftoversOfAnotherMountAreShown) {
    served.put("/.kemvi-hidden-00000000-1", "left by a crash");
    EXPECT_THAT(list("/"), ElementsAre(".", "..", ".kemvi-hidden-00000000-1"));
    remove("/.kemvi-hidden-00000000-1");
}

TEST_F(FileTreeHidden, aRemovalThatTheHelperRefusesRemovesNothing) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    served.before = refuseOnce("rename", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { remove("/a"); }), EACCES);
    EXPECT_EQ(read(file), "0123");
    EXPECT_EQ(close(file), 0);
    EXPECT_EQ(served.bytes("/a"), "0123");
}

TEST_F(FileTreeHidden, oneThatCannotBeRemovedIsNamedInTheLog) {
    const OpenFileID file = create("/a");
    remove("/a");
    const std::string name = hiddenName();
    served.before = refuseOnce("unlink", posixErrno::EACCES_);
    close(file);
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr(name)));
    EXPECT_THAT(list("/"), testing::Contains(name)) << "from now on it is an ordinary file";
    remove("/" + name);
}

TEST_F(FileTreeHidden, anErrorOfGivingItsHandlesBackDoesNotKeepItAlive) {
    served.put("/a", "0123");
    const OpenFileID file = open("/a", O_RDWR);
    remove("/a");
    EXPECT_EQ(read(file), "0123");
    write(file, 0, "x");
    served.before = refuseAlways("release", posixErrno::EIO_);
    close(file);
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(FileTreeHidden, oneThatVanishesBehindTheMountIsNoHarm) {
    const OpenFileID file = create("/a");
    const NodeID id = node("/a");
    remove("/a");
    served.erase("/" + hiddenName());
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(id); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { read(file); }), ESTALE);
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(FileTreeHidden, oneThatVanishedUnnoticedIsNoHarm) {
    const OpenFileID file = create("/a");
    remove("/a");
    served.erase("/" + hiddenName());
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(FileTreeHidden, oneWhoseDirectoryVanishesIsNoHarm) {
    makeDirectory("/d");
    const OpenFileID file = create("/d/a");
    const NodeID directory = node("/d");
    remove("/d/a");
    served.erase("/d");
    EXPECT_EQ(errnoOf([&] { tree().getAttributes(directory); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { read(file); }), ESTALE);
    EXPECT_EQ(close(file), 0);
}

TEST_F(FileTreeHidden, itDoesNotKeepItsDirectoryFromBeingRemoved) {
    for (const bool recursive : {false, true}) {
        served.unlinkIsRecursive = recursive;
        makeDirectory("/d");
        const OpenFileID file = create("/d/a");
        write(file, 0, "0123");
        remove("/d/a");
        removeDirectory("/d");
        EXPECT_FALSE(served.has("/d"));
        EXPECT_EQ(read(file), "0123");
        EXPECT_THAT(list("/"), ElementsAre(".", ".."));
        EXPECT_EQ(close(file), 0);
        EXPECT_THAT(served.names("/"), IsEmpty());
    }
}

TEST_F(FileTreeHidden, itMovesUpThroughEveryDirectoryThatIsRemoved) {
    makeDirectory("/d");
    makeDirectory("/d/e");
    const OpenFileID one = create("/d/e/a");
    const OpenFileID two = create("/d/e/b");
    write(one, 0, "one");
    write(two, 0, "two");
    remove("/d/e/a");
    remove("/d/e/b");
    removeDirectory("/d/e");
    removeDirectory("/d");
    EXPECT_EQ(read(one), "one");
    EXPECT_EQ(read(two), "two");
    EXPECT_EQ(close(one), 0);
    EXPECT_EQ(close(two), 0);
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(FileTreeHidden, itAloneIsMovedOutOfADirectoryThatIsRemoved) {
    makeDirectory("/d");
    const OpenFileID file = create("/d/a");
    write(file, 0, "0123");
    served.put("/d/known", "x");
    node("/d/known");
    served.erase("/d/known");
    remove("/d/a");
    served.takeRequests();
    removeDirectory("/d");
    EXPECT_THAT(served.takeRequests(), testing::Not(testing::Contains(testing::HasSubstr("known"))));
    EXPECT_EQ(read(file), "0123");
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(FileTreeHidden, itDoesNotKeepItsDirectoryFromBeingReplaced) {
    for (const bool replaces : {true, false}) {
        served.renameReplaces = replaces;
        makeDirectory("/from");
        makeDirectory("/to");
        const OpenFileID file = create("/to/a");
        write(file, 0, "0123");
        remove("/to/a");
        rename("/from", "/to");
        EXPECT_EQ(read(file), "0123");
        EXPECT_EQ(close(file), 0);
        EXPECT_THAT(served.names("/"), ElementsAre("to"));
        removeDirectory("/to");
    }
}

TEST_F(FileTreeHidden, itFollowsItsDirectory) {
    makeDirectory("/d");
    const OpenFileID file = create("/d/a");
    write(file, 0, "0123");
    remove("/d/a");
    rename("/d", "/e");
    EXPECT_EQ(read(file), "0123");
    EXPECT_THAT(list("/e"), ElementsAre(".", ".."));
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(served.names("/e"), IsEmpty());
}

TEST_F(FileTreeHidden, aDirectoryThatCannotBeRemovedKeepsWhatItHeld) {
    makeDirectory("/d");
    const OpenFileID file = create("/d/a");
    write(file, 0, "0123");
    remove("/d/a");
    served.before = refuseOnce("unlink", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { removeDirectory("/d"); }), EACCES);
    EXPECT_EQ(read(file), "0123");
    EXPECT_EQ(close(file), 0);
    EXPECT_THAT(served.names("/d"), IsEmpty());
    EXPECT_THAT(served.names("/"), ElementsAre("d"));
}

TEST_F(FileTreeHidden, theEndOfTheMountRemovesThem) {
    const OpenFileID one = create("/a");
    const OpenFileID two = open("/a", O_RDONLY);
    makeDirectory("/d");
    const OpenFileID three = create("/d/b");
    remove("/a");
    remove("/d/b");
    end();
    EXPECT_THAT(served.names("/"), ElementsAre("d"));
    EXPECT_THAT(served.names("/d"), IsEmpty());
    for (const OpenFileID file : {one, two, three})
        EXPECT_EQ(errnoOf([&] { tree().read(file, 0, {}); }), EBADF);
}

TEST_F(FileTreeHidden, withItsLastCloseTheDirectoryGoesTooIfTheKernelHasForgottenThat) {
    makeDirectory("/d");
    const OpenFileID file = create("/d/a");
    const NodeID id = node("/d/a");
    remove("/d/a");
    forget(node("/d"));
    EXPECT_EQ(close(file), 0);
    forget(id);
    EXPECT_EQ(tree().nodes().size(), 1U);
}

TEST_F(FileTreeHidden, theEndOfTheMountSurvivesAHelperThatIsDead) {
    create("/a");
    remove("/a");
    served.before = refuseAlways("", posixErrno::EIO_);
    end();
    EXPECT_FALSE(hiddenName().empty());
}

} // namespace
} // namespace fusehosttests
