#include "RoomTest.h"

namespace fusehosttests {
namespace {

using fusehost::FileChange;
using fusehost::NameChange;

class ChangesTest : public RoomTest {};

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

} // namespace
} // namespace fusehosttests
