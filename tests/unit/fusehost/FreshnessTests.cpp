#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Freshness.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using fusehost::Absence;
using fusehost::Freshness;
using fusehost::Node;

class FreshnessTest : public testing::Test {
protected:
    Node nodeNamed(fusehost::NodeID id) {
        Node node;
        node.id = id;
        node.parent = &root;
        return node;
    }

    static struct stat ofSize(off_t size) {
        struct stat attributes {};

        attributes.st_size = size;
        return attributes;
    }

    std::chrono::steady_clock::time_point now{1h};
    fusehost::Clock clock = [this] { return now; };
    Node root;
    Node file = nodeNamed(7);
    Freshness freshness{fusehost::Seconds(10), clock};
    Absence absence{true, clock};
};

TEST_F(FreshnessTest, aChangeIsCountedAndBorneByTheNode) {
    Node other = nodeNamed(8);
    freshness.noteChange(file);
    freshness.noteChange(other);
    EXPECT_GT(other.changed, file.changed);
    EXPECT_EQ(freshness.changes(), other.changed);
}

TEST_F(FreshnessTest, whatWasShownServesForAMoment) {
    freshness.noteShown(file, ofSize(5));
    now += fusehost::briefTrust - 1ms;
    ASSERT_NE(freshness.shown(file), nullptr);
    EXPECT_EQ(freshness.shown(file)->st_size, 5);
    now += 1ms;
    EXPECT_EQ(freshness.shown(file), nullptr);
}

TEST_F(FreshnessTest, whatWasShownServesNoLongerThanTheKernelTrustsIt) {
    Freshness distrusting(fusehost::Seconds(0), clock);
    distrusting.noteShown(file, ofSize(5));
    EXPECT_EQ(distrusting.shown(file), nullptr);
    Freshness brief(fusehost::Seconds(0.005), clock);
    brief.noteShown(file, ofSize(5));
    now += 4ms;
    EXPECT_NE(brief.shown(file), nullptr);
    now += 1ms;
    EXPECT_EQ(brief.shown(file), nullptr);
}

TEST_F(FreshnessTest, whatWasShownServesThatNodeAloneUntilItChangesOrLosesItsName) {
    freshness.noteShown(file, ofSize(5));
    EXPECT_EQ(freshness.shown(nodeNamed(8)), nullptr);
    file.parent = nullptr;
    EXPECT_EQ(freshness.shown(file), nullptr);
    file.parent = &root;
    EXPECT_NE(freshness.shown(file), nullptr);
    freshness.noteChange(file);
    EXPECT_EQ(freshness.shown(file), nullptr);
}

TEST_F(FreshnessTest, onlyWhatCameOfAChangeServesTheKernelsOwnQuestion) {
    freshness.noteShown(file, ofSize(5));
    EXPECT_EQ(freshness.shownForChange(file), nullptr);
    freshness.noteShownForChange(file);
    EXPECT_NE(freshness.shownForChange(file), nullptr);
    freshness.noteShownForChange(nodeNamed(8));
    EXPECT_EQ(freshness.shownForChange(file), nullptr) << "the last change was another node's";
}

TEST_F(FreshnessTest, aNameThatWasMissingIsKnownToBeForAMoment) {
    absence.note(root, "a");
    const auto absent = absence.take();
    ASSERT_TRUE(absent);
    now += fusehost::briefTrust - 1ms;
    EXPECT_TRUE(absence.tells(*absent, root, "a"));
    now += 1ms;
    EXPECT_FALSE(absence.tells(*absent, root, "a"));
}

TEST_F(FreshnessTest, aNameThatWasMissingTellsOfNoOther) {
    absence.note(root, "a");
    const auto absent = absence.take();
    ASSERT_TRUE(absent);
    EXPECT_FALSE(absence.tells(*absent, root, "b"));
    EXPECT_FALSE(absence.tells(*absent, file, "a"));
    EXPECT_FALSE(Absence(false, clock).tells(*absent, root, "a")) << "not where it is not to be trusted";
}

TEST_F(FreshnessTest, aMissingNameIsTakenOnce) {
    absence.note(root, "a");
    EXPECT_TRUE(absence.take());
    EXPECT_FALSE(absence.take());
}

} // namespace
