#include "PlayedTasks.h"

#include "hosts/fuse/placement/Aftermath.h"
#include "hosts/fuse/placement/Masks.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace fusehosttests {
namespace {

using fusehost::Masks;
using fusehost::ProcessorSet;
using testing::HasSubstr;

constexpr pid_t host = 10;
constexpr pid_t executing = 11;
constexpr pid_t watcher = 12;
constexpr pid_t helper = 20;
constexpr pid_t worker = 21;

class MasksTest : public testing::Test {
protected:
    MasksTest() {
        for (const pid_t thread : {host, executing, watcher})
            tasks.start(host, thread);
        tasks.start(helper, helper);
        tasks.start(helper, worker);
        tasks.threadsOf[executing].processor = 2;
    }

    std::string place() { return masks.place(helper, {helper, helper}); }

    /// As many looks as follow until nothing can have gone unnoticed.
    void settle() {
        while (!masks.isSettled())
            masks.lookAfterOthers();
    }

    PlayedTasks tasks{4};
    Masks masks{tasks, {host, executing}};
};

TEST_F(MasksTest, putBothWhereTheHostRunsAndNobodyElse) {
    EXPECT_EQ(place(), "");
    EXPECT_TRUE(tasks.maskOf(executing) == processors({2}));
    EXPECT_TRUE(tasks.maskOf(helper) == processors({2}));
    for (const pid_t other : {host, watcher, worker})
        EXPECT_TRUE(tasks.maskOf(other) == tasks.machine) << other;
}

TEST_F(MasksTest, stayWithinWhatBothMayUse) {
    tasks.threadsOf[executing].mask = processors({0, 1, 3});
    tasks.threadsOf[helper].mask = processors({1, 2, 3});
    EXPECT_EQ(place(), "");
    EXPECT_TRUE(tasks.maskOf(executing) == processors({1}));
    masks.putBack();
    EXPECT_TRUE(tasks.maskOf(executing) == processors({0, 1, 3}));
    EXPECT_TRUE(tasks.maskOf(helper) == processors({1, 2, 3}));
}

TEST_F(MasksTest, changeNothingWithFewerThanTwoProcessors) {
    tasks.threadsOf[executing].mask = processors({2});
    EXPECT_THAT(place(), HasSubstr("fewer than two processors"));
    tasks.threadsOf[executing].mask = processors({0, 1});
    tasks.threadsOf[helper].mask = processors({1, 2});
    EXPECT_THAT(place(), HasSubstr("fewer than two processors"));
    EXPECT_EQ(tasks.changes, 0);
}

TEST_F(MasksTest, leaveTheHostAloneWhereTheCompanionBelongsToSomebodyElse) {
    tasks.refuse = [](pid_t thread) { return thread == helper ? EPERM : 0; };
    EXPECT_THAT(place(), HasSubstr("Operation not permitted"));
    EXPECT_FALSE(masks.arePlaced());
    EXPECT_TRUE(tasks.maskOf(executing) == tasks.machine);
}

TEST_F(MasksTest, giveBackAllThereCanBeToThoseThatHadAllThereIs) {
    place();
    masks.putBack();
    EXPECT_TRUE(tasks.asked[helper] == ProcessorSet::all());
    EXPECT_TRUE(tasks.maskOf(helper) == tasks.machine);
    EXPECT_TRUE(tasks.maskOf(executing) == tasks.machine);
}

TEST_F(MasksTest, ofWhatTheTwoStartAreThoseOfTheirStarters) {
    tasks.threadsOf[helper].mask = processors({1, 2, 3});
    place();
    tasks.startFrom(helper, helper, 22);
    tasks.startFrom(executing, host, 13);
    tasks.startFrom(helper, 30, 30);
    tasks.startFrom(30, 31, 31);
    EXPECT_EQ(masks.lookAfterOthers(), 2);
    for (const pid_t started : {22, 30, 31})
        EXPECT_TRUE(tasks.maskOf(started) == processors({1, 2, 3})) << started;
    EXPECT_TRUE(tasks.maskOf(13) == tasks.machine);
    EXPECT_TRUE(tasks.maskOf(helper) == processors({2}));
    EXPECT_TRUE(tasks.maskOf(executing) == processors({2}));
    EXPECT_EQ(masks.lookAfterOthers(), 0);
}

TEST_F(MasksTest, reachAProcessThatIsStartedByOneBeforeThatHasItsOwnAgain) {
    place();
    tasks.startFrom(helper, 30, 30);
    tasks.onChange = [&](pid_t thread) {
        if (thread == 30 && !tasks.threadsOf.contains(31)) {
            tasks.startFrom(30, 31, 31);
            tasks.threadsOf[31].mask = processors({2}); // had begun before
        }
    };
    masks.lookAfterOthers();
    EXPECT_TRUE(tasks.maskOf(31) == tasks.machine);
}

TEST_F(MasksTest, ofWhatShowsOnlyAfterTheTwoWerePutBackAreGivenBackToo) {
    place();
    masks.putBack();
    EXPECT_FALSE(masks.isSettled());
    tasks.start(helper, 22);
    tasks.threadsOf[22].mask = processors({2});
    settle();
    EXPECT_TRUE(tasks.maskOf(22) == tasks.machine);
}

TEST_F(MasksTest, thatSomebodyChoseStay) {
    tasks.threadsOf[worker].mask = processors({2}); // before, and the very same
    place();
    tasks.startFrom(helper, helper, 22);
    tasks.threadsOf[22].mask = processors({3});
    tasks.startFrom(helper, helper, 23);
    masks.lookAfterOthers();
    tasks.threadsOf[23].mask = processors({2}); // later
    for (int look = 0; look < 20; ++look)
        masks.lookAfterOthers();
    masks.putBack();
    settle();
    EXPECT_TRUE(tasks.maskOf(worker) == processors({2}));
    EXPECT_TRUE(tasks.maskOf(22) == processors({3}));
    EXPECT_TRUE(tasks.maskOf(23) == processors({2}));
}

TEST_F(MasksTest, thatTheCompanionIsGivenMeanwhileStay) {
    place();
    EXPECT_TRUE(masks.areOurs());
    tasks.threadsOf[helper].mask = processors({0, 1});
    EXPECT_FALSE(masks.areOurs());
    masks.putBack();
    EXPECT_TRUE(tasks.maskOf(helper) == processors({0, 1}));
    EXPECT_TRUE(tasks.maskOf(executing) == tasks.machine);
}

TEST_F(MasksTest, areGivenBackWhereTheProcessorItselfWasTakenAway) {
    place();
    tasks.machine = processors({0, 1, 3});
    tasks.threadsOf[helper].mask = tasks.threadsOf[executing].mask = processors({0});
    masks.putBack();
    EXPECT_TRUE(tasks.maskOf(helper) == tasks.machine);
    EXPECT_TRUE(tasks.maskOf(executing) == tasks.machine);
}

TEST_F(MasksTest, sparesLooksAtEverybodyWhileTheFamilyIsTheSame) {
    place();
    masks.lookAfterOthers();
    tasks.start(helper, 22); // in the place of another thread: the count stays
    tasks.threadsOf.erase(worker);
    tasks.threadsOf[22].mask = processors({2});
    masks.lookAfterOthers();
    EXPECT_TRUE(tasks.maskOf(22) == processors({2}));
    for (int look = 0; look < 8; ++look)
        masks.lookAfterOthers();
    EXPECT_TRUE(tasks.maskOf(22) == tasks.machine);
}

TEST_F(MasksTest, areTakenBackByAnotherProcessShouldTheHostDie) {
    place();
    tasks.startFrom(helper, 30, 30);
    tasks.threadsOf[0] = {40, processors({0, 1, 2}), {}, 0}; // the caller
    tasks.threadsOf[worker].mask = processors({3});
    fusehost::giveBackAfterDeath(tasks, helper, masks.processor());
    EXPECT_TRUE(tasks.maskOf(helper) == processors({0, 1, 2}));
    EXPECT_TRUE(tasks.maskOf(30) == processors({0, 1, 2}));
    EXPECT_TRUE(tasks.maskOf(worker) == processors({3}));
    tasks.threadsOf[worker].mask = processors({2});
    tasks.threadsOf[0].mask = processors({1});
    fusehost::giveBackAfterDeath(tasks, helper, masks.processor());
    EXPECT_TRUE(tasks.maskOf(worker) == processors({2}));
}

} // namespace
} // namespace fusehosttests
