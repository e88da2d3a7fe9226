#include "PlayedTasks.h"

#include "hosts/fuse/placement/Placer.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using fusehost::Companion;
using fusehost::Pace;
using fusehost::Placer;
using fusehost::Way;

constexpr pid_t host = 10;
constexpr pid_t helper = 20;

class PlacerTest : public testing::Test {
protected:
    PlacerTest() {
        tasks.start(host, host);
        tasks.start(helper, helper);
        companion.began(helper);
    }

    bool isPlaced(pid_t thread) const { return tasks.maskOf(thread).count() == 1; }

    /// One step of work, as fast as the way in which it is done makes it.
    void work() {
        const auto gap = isPlaced(host) ? gapTogether : 60us;
        const auto end = now + Placer::stepLength;
        for (; now < end; now += gap) {
            pace.arrived(now);
            ++tasks.threadsOf[host].times.turns;
            ++tasks.threadsOf[answering].times.turns;
        }
        each();
        placer->step(now);
    }

    /// For longer than it is presumed to be better.
    void workUntilPlaced() {
        for (int step = 0; step < 400 && !(placer->way() == Way::together && steady > 110); ++step) {
            work();
            steady = placer->way() == Way::together ? steady + 1 : 0;
        }
        ASSERT_EQ(placer->way(), Way::together);
    }

    /// Steps without work until there is nothing to do; how many it takes.
    int rest() {
        int steps = 1;
        for (; placer->step(now += Placer::stepLength); ++steps) {
        }
        return steps;
    }

    PlayedTasks tasks{2};
    Companion companion;
    Pace pace{[] {}};
    pid_t answering = helper;
    std::chrono::microseconds gapTogether = 30us;
    int steady = 0;
    Placer::Clock::time_point now = Placer::Clock::now();
    std::function<void()> each = [] {};
    std::optional<Placer> placer{std::in_place, tasks, pace, companion, fusehost::Task{host, host}};
};

TEST_F(PlacerTest, putsTheTwoTogetherWhereThatIsFaster) {
    workUntilPlaced();
    EXPECT_TRUE(isPlaced(host));
    EXPECT_TRUE(isPlaced(helper));
    EXPECT_EQ(pace.waitingTime() > 0us, true);
}

TEST_F(PlacerTest, putsEverythingBackWhenTheMountIsIdleAndTakesItUpAgainWithWork) {
    workUntilPlaced();
    EXPECT_LE(rest(), 15);
    EXPECT_EQ(tasks.rests, 1);
    EXPECT_FALSE(isPlaced(host));
    EXPECT_FALSE(isPlaced(helper));
    work();
    EXPECT_TRUE(isPlaced(host)) << "what was found out is not forgotten";
}

TEST_F(PlacerTest, looksSeldomWhileThereIsNothingToSeeTo) {
    EXPECT_EQ(placer->untilNextStep(), Placer::stepLength) << "while it tries";
    workUntilPlaced();
    EXPECT_EQ(placer->untilNextStep(), Placer::stepLength);
    tasks.threadsOf[host].times.delayed += 20ms;
    for (int step = 0; step < 5; ++step)
        work();
    EXPECT_EQ(placer->untilNextStep(), Placer::longStep) << "while it is barred";
}

TEST_F(PlacerTest, putsEverythingBackAtItsEnd) {
    workUntilPlaced();
    placer.reset();
    EXPECT_FALSE(isPlaced(host));
    EXPECT_FALSE(isPlaced(helper));
}

TEST_F(PlacerTest, givesUpAtOnceWhenTheTwoHaveToWaitForTheProcessor) {
    workUntilPlaced();
    tasks.threadsOf[host].times.delayed += 20ms;
    work();
    EXPECT_FALSE(isPlaced(host));
    EXPECT_FALSE(isPlaced(helper));
    for (int step = 0; step < 9; ++step) {
        work();
        EXPECT_FALSE(isPlaced(host));
    }
    work();
    EXPECT_TRUE(isPlaced(host)) << "what was there for a moment has gone";
}

TEST_F(PlacerTest, leavesEverythingAloneWhileOthersWantEveryProcessor) {
    tasks.ready = 4;
    for (int step = 0; step < 400; ++step) {
        work();
        EXPECT_FALSE(isPlaced(host));
        EXPECT_EQ(pace.waitingTime(), 0us);
    }
    tasks.ready = 3;
    workUntilPlaced();
    tasks.ready = 4;
    for (int step = 0; step < 8; ++step)
        work();
    EXPECT_FALSE(isPlaced(host));
    EXPECT_FALSE(isPlaced(helper));
    tasks.ready = 3;
    for (int step = 0; step < 12; ++step)
        work();
    EXPECT_TRUE(isPlaced(host)) << "what was found out is not forgotten";
}

TEST_F(PlacerTest, looksAnewWhatOthersWantWhenWorkBeginsAgain) {
    tasks.ready = 4;
    work();
    rest();
    tasks.ready = 3;
    for (int step = 0; step < 12; ++step)
        work();
    EXPECT_TRUE(isPlaced(host));
}

TEST_F(PlacerTest, countsWhatTheTwoWaitForOthersAsCost) {
    gapTogether = 55us;
    each = [&] { tasks.threadsOf[host].times.delayed += isPlaced(host) ? 5800us : 3700us; };
    for (int step = 0; step < 100; ++step)
        work();
    EXPECT_EQ(placer->untilNextStep(), Placer::longStep) << "the trial is over";
    EXPECT_EQ(placer->way(), Way::apart);
}

TEST_F(PlacerTest, takesTheProcessorOnWhichTheHostRunsWhenItTakesItUpAgain) {
    tasks.threadsOf[host].processor = 0;
    workUntilPlaced();
    EXPECT_TRUE(tasks.maskOf(helper) == processors({0}));
    tasks.threadsOf[host].processor = 1;
    tasks.threadsOf[host].times.delayed += 20ms;
    work();
    steady = 0;
    workUntilPlaced();
    EXPECT_TRUE(tasks.maskOf(helper) == processors({1}));
}

TEST_F(PlacerTest, remembersHarmLongerTheMoreOftenItCame) {
    const auto bar = [&] {
        tasks.threadsOf[host].times.delayed += 20ms;
        work();
        const auto began = now;
        while (!isPlaced(host))
            work();
        return now - began;
    };
    workUntilPlaced();
    EXPECT_LT(bar(), 80ms);
    EXPECT_GT(bar(), 90ms);
    for (int more = 0; more < 8; ++more)
        bar();
    EXPECT_GT(bar(), 15s);
    EXPECT_LT(bar(), 17s);
}

TEST_F(PlacerTest, leavesACompanionAloneThatStartsProcesses) {
    workUntilPlaced();
    tasks.startFrom(helper, 30, 30);
    work();
    EXPECT_FALSE(isPlaced(helper));
    EXPECT_FALSE(isPlaced(30));
}

TEST_F(PlacerTest, goesOnWithACompanionThatStartsThreads) {
    workUntilPlaced();
    tasks.startFrom(helper, helper, 21);
    work();
    EXPECT_TRUE(isPlaced(helper));
    EXPECT_FALSE(isPlaced(21));
}

TEST_F(PlacerTest, neverPlacesAgainWhomSomebodyElseHasPlaced) {
    workUntilPlaced();
    tasks.threadsOf[helper].mask = processors({0, 1});
    tasks.machine = processors({0, 1});
    for (int step = 0; step < 1000; ++step) {
        work();
        EXPECT_EQ(tasks.maskOf(helper).count(), 2);
        EXPECT_FALSE(isPlaced(host));
    }
}

TEST_F(PlacerTest, leavesTheHostAloneWhereTheCompanionCannotBePlaced) {
    tasks.refuse = [](pid_t thread) { return thread == helper ? EPERM : 0; };
    for (int step = 0; step < 200; ++step) {
        work();
        EXPECT_FALSE(isPlaced(host));
    }
}

TEST_F(PlacerTest, leavesTheHostAloneWhereThereIsNoCompanionOrOneThatHasGone) {
    workUntilPlaced();
    companion.ended(helper);
    work();
    EXPECT_EQ(pace.waitingTime() > 0us, placer->way() != Way::apart);
    for (int step = 0; step < 100; ++step) {
        EXPECT_FALSE(isPlaced(host));
        EXPECT_FALSE(isPlaced(helper));
        work();
    }
}

TEST_F(PlacerTest, turnsToTheNextCompanion) {
    workUntilPlaced();
    tasks.start(40, 40);
    answering = 40;
    companion.began(40);
    companion.ended(helper); // told late
    work();
    EXPECT_FALSE(isPlaced(helper));
    steady = 0;
    workUntilPlaced();
    EXPECT_TRUE(isPlaced(40));
}

TEST_F(PlacerTest, findsTheChildThatAnswersForItsParent) {
    tasks.startFrom(helper, 30, 30);
    answering = 30;
    workUntilPlaced();
    EXPECT_TRUE(isPlaced(30));
    EXPECT_FALSE(isPlaced(helper));
}

} // namespace
} // namespace fusehosttests
