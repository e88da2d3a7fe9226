#include "RoomTest.h"

#include "hosts/fuse/tree/Listings.h"
#include "hosts/fuse/tree/Removal.h"
#include "hosts/fuse/tree/Renaming.h"

#include <cstdio>

namespace fusehosttests {
namespace {

class RemovalTest : public RoomTest {
protected:
    fusehost::Listings listings{calls, nodes, hidden, attributes, freshness};
    fusehost::Removal removal{changes, nodes, hidden, listings};
    fusehost::Renaming renaming{changes, nodes, hidden, listings};
};

TEST_F(RemovalTest, removesAFileAndForgetsItsName) {
    fileNamed("a", "");
    removal.removeFile(root(), "a");
    EXPECT_FALSE(served.has("/a"));
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
}

TEST_F(RemovalTest, hidesAFileThatIsOpenInsteadOfRemovingIt) {
    Node& file = fileNamed("a", "text");
    file.readers = 1;
    removal.removeFile(root(), "a");
    EXPECT_FALSE(served.has("/a"));
    EXPECT_TRUE(file.hidden);
    EXPECT_EQ(contentOf(file), "text");
    EXPECT_EQ(errnoOf([&] { removal.removeFile(root(), file.name); }), ENOENT) << "a hidden file is not to be named";
}

TEST_F(RemovalTest, aDirectoryThatHoldsHiddenFilesAloneIsRemovedAndTheyLiveOn) {
    served.putDirectory("/d");
    Node& directory = found("d");
    served.put("/d/a", "text");
    Node& file = nodes.adopt(directory, nodes.find(directory, "a"));
    file.lookups = file.readers = 1;
    EXPECT_EQ(errnoOf([&] { removal.removeDirectory(root(), "d"); }), ENOTEMPTY);
    removal.removeFile(directory, "a");
    removal.removeDirectory(root(), "d");
    EXPECT_FALSE(served.has("/d"));
    file.size = 4;
    EXPECT_EQ(contentOf(file), "text");
    EXPECT_EQ(file.parent, &root());
}

TEST_F(RemovalTest, aRenameMovesTheNodeAndNotesItsChange) {
    Node& file = fileNamed("a", "text");
    const std::uint64_t before = file.changed;
    renaming.rename(root(), "a", root(), "b", 0);
    EXPECT_EQ(nodes.child(root(), "b"), &file);
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
    EXPECT_GT(file.changed, before);
}

TEST_F(RemovalTest, aRenameThatFailsGivesAHiddenTargetItsNameBack) {
    fileNamed("a", "a");
    Node& target = fileNamed("b", "b");
    target.readers = 1;
    served.before = refuseAlways("rename /a", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", 0); }), EACCES);
    EXPECT_FALSE(target.hidden);
    EXPECT_EQ(target.name, "b");
    EXPECT_EQ(served.bytes("/b"), "b");
}

TEST_F(RemovalTest, aRenameTakesOnlyTheFlagsThatItKnows) {
    fileNamed("a", "a");
    fileNamed("b", "b");
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", RENAME_EXCHANGE); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", RENAME_NOREPLACE); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "c", RENAME_NOREPLACE); }), 0);
}

} // namespace
} // namespace fusehosttests
