#include "RoomTest.h"

#include "hosts/fuse/tree/Creation.h"
#include "hosts/fuse/tree/Lookup.h"
#include "hosts/fuse/tree/NewItems.h"
#include "hosts/fuse/tree/Removal.h"
#include "hosts/fuse/tree/Renaming.h"
#include "hosts/fuse/tree/Resizing.h"
#include "hosts/fuse/tree/Shrinking.h"

namespace fusehosttests {
namespace {

using fusehost::FileChange;
using fusehost::NameChange;

class ChangesTest : public RoomTest {
protected:
    fusehost::Lookup lookup{nodes, hidden, attributes, absence};
    fusehost::NewItems newItems{calls, nodes};
    fusehost::HeadCopies copies{changes, nodes, newItems, hiddenNames};
    fusehost::Shrinking shrinking{nodes, contents, durability, copies};
    fusehost::Resizing resizing{nodes, handles, attributes, contents, shrinking};
    fusehost::Opening opening{nodes, handles, resizing, files};
    fusehost::Listings listings{calls, nodes, hidden, attributes, freshness};
    fusehost::Creation creation{changes, nodes, hidden, newItems, attributes, opening};
    fusehost::Removal removal{changes, nodes, hidden, listings};
    fusehost::Renaming renaming{changes, nodes, hidden, listings};
};

// What a change begins with

TEST_F(ChangesTest, everyChangeClosesWhatWaitsToBeClosed) {
    Node& file = fileNamed("a", "");
    handles.open(file, FSVolumeOpenModes::read);
    handles.closeWhenIdle(file);
    const FileChange change(changes);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_FALSE(handles.isPending());
}

TEST_F(ChangesTest, aChangeOfNamesIsNotedInItsDirectories) {
    served.putDirectory("/d");
    Node& directory = found("d");
    const std::uint64_t before = freshness.changes();
    const NameChange change(changes, root(), directory);
    EXPECT_GT(root().changed, before);
    EXPECT_GT(directory.changed, before);
}

TEST_F(ChangesTest, aChangeOfNamesTakesTheAbsentNameAwayAndTellsOfItOnce) {
    absence.note(root(), "a");
    NameChange change(changes, root());
    EXPECT_FALSE(absence.take()) << "the next change must not trust it";
    EXPECT_TRUE(change.knowsAbsent(root(), "a"));
    EXPECT_FALSE(change.knowsAbsent(root(), "a"));
}

TEST_F(ChangesTest, anAbsenceGrowsOldWhileAChangeLasts) {
    absence.note(root(), "a");
    NameChange change(changes, root());
    now += fusehost::briefTrust;
    EXPECT_FALSE(change.knowsAbsent(root(), "a"));
}

// Lookup and creation

TEST_F(ChangesTest, aCreateRightAfterItsLookupAsksNoSecondTime) {
    EXPECT_EQ(errnoOf([&] { lookup.find(root(), "a"); }), ENOENT);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
    creation.create(root(), "a", O_WRONLY, 0644);
    EXPECT_EQ(served.takeRequests().front(), "open write,create,truncate /a");
}

TEST_F(ChangesTest, aCreateLongAfterItsLookupEmptiesNothing) {
    EXPECT_EQ(errnoOf([&] { lookup.find(root(), "a"); }), ENOENT);
    served.put("/a", "kept");
    now += fusehost::briefTrust;
    const auto [entry, file] = creation.create(root(), "a", O_WRONLY, 0644);
    EXPECT_EQ(served.bytes("/a"), "kept");
    EXPECT_EQ(entry.attributes.st_size, 4);
}

TEST_F(ChangesTest, aNewFileIsDueAndOpenBeforeItIsWritten) {
    const auto [entry, file] = creation.create(root(), "a", O_RDWR, 0644);
    const Node& node = nodes.at(entry.node);
    EXPECT_EQ(node.safety, fusehost::Safety::due);
    EXPECT_EQ(node.lookups, 1U);
    EXPECT_TRUE(node.isOpen());
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(ChangesTest, aFailedOpenOfWhatIsThereTakesNothing) {
    served.put("/a", "");
    served.before = refuseAlways("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { creation.create(root(), "a", O_WRONLY, 0644); }), EACCES);
    EXPECT_EQ(table.size(), 1U);
}

TEST_F(ChangesTest, aNewItemGetsTheModeThatWasAskedForWhereItIsNotTheUsualOne) {
    const NameChange change(changes, root());
    newItems.make(change, root(), "usual", fskit::FSItemType::file, 0644);
    newItems.make(change, root(), "private", fskit::FSItemType::file, 0600);
    newItems.make(change, root(), "tool", fskit::FSItemType::file, 0755);
    newItems.make(change, root(), "sealed", fskit::FSItemType::file, 0);
    EXPECT_EQ(served.mode("/usual"), 0644U);
    EXPECT_EQ(served.mode("/private"), 0600U);
    EXPECT_EQ(served.mode("/tool"), 0755U);
    EXPECT_EQ(served.mode("/sealed"), 0600U) << "its owner is about to fill it";
}

// Removal and renaming

TEST_F(ChangesTest, removesAFileAndForgetsItsName) {
    fileNamed("a", "");
    removal.removeFile(root(), "a");
    EXPECT_FALSE(served.has("/a"));
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
}

TEST_F(ChangesTest, hidesAFileThatIsOpenInsteadOfRemovingIt) {
    Node& file = fileNamed("a", "text");
    file.readers = 1;
    removal.removeFile(root(), "a");
    EXPECT_FALSE(served.has("/a"));
    EXPECT_TRUE(file.hidden);
    EXPECT_EQ(contentOf(file), "text");
    EXPECT_EQ(errnoOf([&] { removal.removeFile(root(), file.name); }), ENOENT) << "a hidden file is not to be named";
}

TEST_F(ChangesTest, aDirectoryThatHoldsHiddenFilesAloneIsRemovedAndTheyLiveOn) {
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

TEST_F(ChangesTest, aRenameMovesTheNodeAndNotesItsChange) {
    Node& file = fileNamed("a", "text");
    const std::uint64_t before = file.changed;
    renaming.rename(root(), "a", root(), "b", 0);
    EXPECT_EQ(nodes.child(root(), "b"), &file);
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
    EXPECT_GT(file.changed, before);
}

TEST_F(ChangesTest, aRenameThatFailsGivesAHiddenTargetItsNameBack) {
    fileNamed("a", "a");
    Node& target = fileNamed("b", "b");
    target.readers = 1;
    served.before = refuseAlways("rename /a", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", 0); }), EACCES);
    EXPECT_FALSE(target.hidden);
    EXPECT_EQ(target.name, "b");
    EXPECT_EQ(served.bytes("/b"), "b");
}

TEST_F(ChangesTest, aRenameTakesOnlyTheFlagsThatItKnows) {
    fileNamed("a", "a");
    fileNamed("b", "b");
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", RENAME_EXCHANGE); }), EINVAL);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "b", RENAME_NOREPLACE); }), EEXIST);
    EXPECT_EQ(errnoOf([&] { renaming.rename(root(), "a", root(), "c", RENAME_NOREPLACE); }), 0);
}

} // namespace
} // namespace fusehosttests
