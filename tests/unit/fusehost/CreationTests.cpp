#include "RoomTest.h"

#include "hosts/fuse/tree/Creation.h"
#include "hosts/fuse/tree/Lookup.h"
#include "hosts/fuse/tree/NewItems.h"
#include "hosts/fuse/tree/Resizing.h"
#include "hosts/fuse/tree/Shrinking.h"

namespace fusehosttests {
namespace {

class CreationTest : public RoomTest {
protected:
    fusehost::Listings listings{calls, nodes, hidden, attributes, freshness};
    fusehost::Lookup lookup{nodes, hidden, attributes, absence, listings, Seconds(10)};
    fusehost::NewItems newItems{calls, nodes};
    fusehost::HeadCopies copies{changes, nodes, newItems, hiddenNames};
    fusehost::Shrinking shrinking{nodes, contents, durability, copies};
    fusehost::Resizing resizing{nodes, handles, attributes, contents, shrinking};
    fusehost::Opening opening{nodes, handles, resizing, files};
    fusehost::Creation creation{changes, nodes, hidden, newItems, attributes, opening};
};

TEST_F(CreationTest, aCreateRightAfterItsLookupAsksNoSecondTime) {
    EXPECT_EQ(errnoOf([&] { lookup.find(root(), "a"); }), ENOENT);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
    creation.create(root(), "a", O_WRONLY, 0644);
    EXPECT_EQ(served.takeRequests().front(), "open write,create,truncate /a");
}

TEST_F(CreationTest, aCreateLongAfterItsLookupEmptiesNothing) {
    EXPECT_EQ(errnoOf([&] { lookup.find(root(), "a"); }), ENOENT);
    served.put("/a", "kept");
    now += fusehost::briefTrust;
    const auto [entry, file] = creation.create(root(), "a", O_WRONLY, 0644);
    EXPECT_EQ(served.bytes("/a"), "kept");
    EXPECT_EQ(entry.attributes.st_size, 4);
}

TEST_F(CreationTest, inADirectoryThatHasGoneFindsItStale) {
    served.putDirectory("/d");
    Node& directory = found("d");
    served.erase("/d");
    EXPECT_EQ(errnoOf([&] { creation.create(directory, "a", O_WRONLY, 0644); }), ESTALE);
    EXPECT_FALSE(directory.hasName());
}

TEST_F(CreationTest, whatTheVolumeCannotMakeInADirectoryThatIsThereIsItsOwnError) {
    served.putDirectory("/d");
    served.before = refuseAlways("open write,create,truncate /d/a", posixErrno::ENOENT_);
    EXPECT_EQ(errnoOf([&] { creation.create(found("d"), "a", O_WRONLY, 0644); }), ENOENT);
}

TEST_F(CreationTest, aNewFileIsDueAndOpenBeforeItIsWritten) {
    const auto [entry, file] = creation.create(root(), "a", O_RDWR, 0644);
    const Node& node = nodes.at(entry.node);
    EXPECT_EQ(node.safety, fusehost::Safety::due);
    EXPECT_EQ(node.lookups, 1U);
    EXPECT_TRUE(node.isOpen());
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(CreationTest, aFailedOpenOfWhatIsThereTakesNothing) {
    served.put("/a", "");
    served.before = refuseAlways("open write", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { creation.create(root(), "a", O_WRONLY, 0644); }), EACCES);
    EXPECT_EQ(table.size(), 1U);
}

TEST_F(CreationTest, aNewItemGetsTheModeThatWasAskedForWhereItIsNotTheUsualOne) {
    const fusehost::NameChange change(changes, root());
    newItems.make(change, root(), "usual", fskit::FSItemType::file, 0644);
    newItems.make(change, root(), "private", fskit::FSItemType::file, 0600);
    newItems.make(change, root(), "tool", fskit::FSItemType::file, 0755);
    newItems.make(change, root(), "sealed", fskit::FSItemType::file, 0);
    EXPECT_EQ(served.mode("/usual"), 0644U);
    EXPECT_EQ(served.mode("/private"), 0600U);
    EXPECT_EQ(served.mode("/tool"), 0755U);
    EXPECT_EQ(served.mode("/sealed"), 0600U) << "its owner is about to fill it";
}

TEST_F(CreationTest, anOpenEmptiesAFileWhereThatIsAskedForAlone) {
    Node& file = fileNamed("a", "text");
    files.release(opening.open(file, O_WRONLY));
    EXPECT_EQ(served.bytes("/a"), "text");
    files.release(opening.open(file, O_WRONLY | O_TRUNC));
    EXPECT_EQ(served.bytes("/a"), "");
}

TEST_F(CreationTest, anOpenTakesNothingForTheFileThatAnEarlierReaderHadOpen) {
    Node& file = fileNamed("a", "old");
    files.release(opening.open(file, O_RDONLY));
    EXPECT_TRUE(handles.isUnused(file));
    served.put("/a", "new");
    const OpenFileID opened = opening.open(file, O_RDONLY);
    EXPECT_EQ(contentOf(file), "new");
    files.release(opened);
}

} // namespace
} // namespace fusehosttests
