#include "hosts/fuse/placement/Demand.h"
#include "hosts/fuse/placement/Judge.h"
#include "hosts/fuse/placement/Pace.h"
#include "hosts/fuse/placement/Strain.h"

#include <gmock/gmock.h>
#include <map>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using fusehost::Demand;
using fusehost::Judge;
using fusehost::Pace;
using fusehost::Strain;
using fusehost::TaskTimes;
using fusehost::Way;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class JudgeTest : public testing::Test {
protected:
    JudgeTest() { presumed = untilNextTrial(); }

    /// Works until the trial under way has ended; returns how many looks it took.
    int finishTrial() {
        int looks = 1;
        while (!judge.add(now += 5ms, cost[judge.way()]))
            ++looks;
        return looks;
    }

    /// Works on until the next trial begins, and returns how long that took.
    std::chrono::nanoseconds untilNextTrial() {
        const auto began = now;
        while (!judge.isTrying())
            judge.add(now += 5ms, cost[judge.way()]);
        return now - began;
    }

    Judge judge;
    Judge::Clock::time_point now = Judge::Clock::now();
    std::map<Way, double> cost{{Way::apart, 100}, {Way::waiting, 100}, {Way::together, 100}};
    std::chrono::nanoseconds presumed;
};

TEST_F(JudgeTest, presumesTogetherUntilItHasTried) {
    EXPECT_EQ(Judge().way(), Way::together);
    EXPECT_EQ(presumed, 505ms);
    judge.excludeTogether(true);
    EXPECT_EQ(judge.way(), Way::apart);
    judge.excludeTogether(false);
    EXPECT_EQ(judge.way(), Way::together);
    EXPECT_FALSE(judge.isTrying());
}

TEST_F(JudgeTest, triesWhenThePresumptionHasDoneHarm) {
    Judge fresh;
    fresh.add(now, 100);
    fresh.bar(now + 50ms);
    EXPECT_EQ(fresh.way(), Way::apart);
    fresh.add(now + 50ms, 100);
    EXPECT_TRUE(fresh.isTrying());
}

TEST_F(JudgeTest, triesEachWaySixTimesAndKeepsTheFastest) {
    cost[Way::together] = 60;
    cost[Way::waiting] = 80;
    EXPECT_EQ(finishTrial(), 18);
    EXPECT_EQ(judge.way(), Way::together);
    EXPECT_EQ(judge.result(), "waiting 80 %, together 60 %");
}

TEST_F(JudgeTest, changesNothingWhereNothingIsClearlyFaster) {
    cost[Way::together] = 97;
    cost[Way::waiting] = 130;
    finishTrial();
    EXPECT_EQ(judge.way(), Way::apart);
}

TEST_F(JudgeTest, usesTwoProcessorsForWaitingOnlyWhereThatIsWorthIt) {
    cost[Way::together] = 62;
    cost[Way::waiting] = 60;
    finishTrial();
    EXPECT_EQ(judge.way(), Way::together);
    untilNextTrial();
    cost[Way::waiting] = 50;
    finishTrial();
    EXPECT_EQ(judge.way(), Way::waiting);
}

TEST_F(JudgeTest, isNotMisledByOneLookThatSomethingDisturbed) {
    cost[Way::together] = 60;
    for (int look = 0; look < 18; ++look) {
        const double disturbed = look == 2 ? 50 : 1;
        judge.add(now += 5ms, cost[judge.way()] * disturbed);
    }
    EXPECT_EQ(judge.way(), Way::together);
}

TEST_F(JudgeTest, isNotMisledByWorkThatGetsSteadilyFaster) {
    double speed = 1;
    for (int look = 0; look < 18; ++look)
        judge.add(now += 5ms, 100 * (speed *= 0.97));
    EXPECT_EQ(judge.way(), Way::apart) << judge.result();
}

TEST_F(JudgeTest, waitsForLooksThatTellSomething) {
    const Way first = judge.way();
    for (int look = 0; look < 100; ++look)
        judge.add(now += 5ms, std::nullopt);
    EXPECT_EQ(judge.way(), first);
    EXPECT_TRUE(judge.isTrying());
}

TEST_F(JudgeTest, looksAgainEverMoreSeldomWhileTheAnswerStaysTheSame) {
    finishTrial();
    EXPECT_EQ(untilNextTrial(), 1s);
    finishTrial();
    EXPECT_EQ(untilNextTrial(), 2s);
    for (int trial = 0; trial < 10; ++trial) {
        finishTrial();
        untilNextTrial();
    }
    finishTrial();
    EXPECT_EQ(untilNextTrial(), 16s);
    cost[Way::together] = 50;
    finishTrial();
    EXPECT_EQ(untilNextTrial(), 1s) << "after another answer";
}

TEST_F(JudgeTest, staysApartWhileBarredAndGoesOnAfterwardsAsItHasFoundOut) {
    cost[Way::together] = 50;
    finishTrial();
    judge.bar(now + 100ms);
    const auto barred = now;
    while (judge.way() == Way::apart)
        judge.add(now += 5ms, 100);
    EXPECT_EQ(now - barred, 100ms);
    EXPECT_FALSE(judge.isTrying());
    EXPECT_EQ(judge.way(), Way::together);
}

TEST_F(JudgeTest, beginsATrialAnewThatWasBroken) {
    cost[Way::together] = 50;
    for (int look = 0; look < 8; ++look)
        judge.add(now += 5ms, cost[judge.way()]);
    judge.bar(now + 100ms);
    for (int look = 0; look < 20; ++look) {
        EXPECT_EQ(judge.way(), Way::apart);
        judge.add(now += 5ms, 100);
    }
    EXPECT_EQ(finishTrial(), 18);
    EXPECT_EQ(judge.way(), Way::together);
}

TEST_F(JudgeTest, comparesTheRestWhereTogetherCannotBeHad) {
    cost[Way::together] = 50;
    cost[Way::waiting] = 70;
    judge.excludeTogether(true);
    EXPECT_EQ(finishTrial(), 12);
    EXPECT_EQ(judge.way(), Way::waiting);
}

class StrainTest : public testing::Test {
protected:
    StrainTest() { strain.begin(now, host, companion); }

    /// A step of 5 ms in which each had so many turns, each of which began so much after it could have.
    std::string step(std::uint64_t turns, std::chrono::nanoseconds late, std::chrono::nanoseconds run = 1ms) {
        pass(turns, late, run);
        return strain.add(now, host, companion);
    }

    void stepApart(std::uint64_t turns, std::chrono::nanoseconds late) {
        pass(turns, late, 1ms);
        strain.addUsual(now, host, companion);
    }

    void pass(std::uint64_t turns, std::chrono::nanoseconds late, std::chrono::nanoseconds run) {
        now += 5ms;
        for (TaskTimes* times : {&host, &companion}) {
            times->turns += turns;
            times->delayed += late * static_cast<int>(turns);
            times->run += run;
        }
    }

    Strain strain;
    Strain::Clock::time_point now = Strain::Clock::now();
    TaskTimes host{1s, 1s, 1000};
    TaskTimes companion{1s, 1s, 1000};
};

TEST_F(StrainTest, isNoneWhereTheTwoOnlyTakeTurns) {
    for (int at = 0; at < 100; ++at)
        EXPECT_THAT(step(150, 15us), IsEmpty());
}

TEST_F(StrainTest, isNoneWhereSomethingElseRunsForAMomentNowAndThen) {
    for (int at = 0; at < 100; ++at)
        EXPECT_THAT(step(at % 10 == 0 ? 1 : 0, 2ms), IsEmpty()) << at;
}

TEST_F(StrainTest, showsAtOnceWhereTheyWaitForTheProcessor) {
    EXPECT_THAT(step(1, 3ms), HasSubstr("had to wait for the processor, 5 of 5 ms"));
}

TEST_F(StrainTest, addsUpOverAFewSteps) {
    EXPECT_THAT(step(1, 1ms), IsEmpty());
    EXPECT_THAT(step(1, 1ms), IsEmpty());
    EXPECT_THAT(step(1, 1ms), HasSubstr("wait for the processor"));
}

TEST_F(StrainTest, isNoneWhereTheyWaitAsLongApart) {
    for (int at = 0; at < 20; ++at)
        stepApart(1, 1ms);
    for (int at = 0; at < 20; ++at)
        EXPECT_THAT(step(1, 1ms), IsEmpty());
    for (int at = 0; at < 2; ++at)
        step(1, 3ms);
    EXPECT_THAT(step(1, 3ms), HasSubstr("wait for the processor"));
}

TEST_F(StrainTest, showsWhereTheCompanionUsesTheProcessorUp) {
    for (int at = 0; at < 3; ++at)
        EXPECT_THAT(step(1, 0us, at < 2 ? 5ms : 4ms), IsEmpty());
    EXPECT_THAT(step(1, 0us, 5ms), HasSubstr("uses the processor up"));
}

TEST_F(StrainTest, tellsHowLongTheyHaveWaitedBeyondTheirTurns) {
    stepApart(10, 120us);
    step(10, 70us);
    EXPECT_EQ(strain.takeWaited(), 2 * 10 * 100us + 2 * 10 * 50us);
    EXPECT_EQ(strain.takeWaited(), 0us);
    step(10, 70us);
    strain.begin(now, host, companion);
    EXPECT_EQ(strain.takeWaited(), 0us);
}

TEST(DemandTest, isHighWhereOthersAreAlwaysReadyOnEveryProcessor) {
    Demand demand;
    EXPECT_FALSE(demand.isHigh()) << "nothing was seen";
    for (int look = 0; look < 20; ++look) {
        demand.add(look % 2 == 0 ? 4 : 6, 2);
        EXPECT_TRUE(demand.isHigh()) << look;
    }
}

TEST(DemandTest, isNotHighWhereManyAreReadyTogetherNowAndThen) {
    Demand demand;
    demand.add(3, 2);
    for (int look = 0; look < 40; ++look) {
        demand.add(look % 4 == 0 ? 3 : 9, 2);
        EXPECT_FALSE(demand.isHigh()) << look;
    }
}

TEST(DemandTest, bearsWithOneLookThatWasDifferent) {
    Demand demand;
    for (int look = 0; look < 20; ++look) {
        demand.add(look % 8 == 5 ? 3 : 4, 2);
        EXPECT_TRUE(demand.isHigh()) << look;
    }
}

TEST(DemandTest, ofMoreProcessorsNeedsMore) {
    Demand demand;
    demand.add(9, 8);
    EXPECT_FALSE(demand.isHigh());
    demand.begin();
    demand.add(10, 8);
    EXPECT_TRUE(demand.isHigh());
}

TEST(DemandTest, isNotHighWhereTheSystemDoesNotTell) {
    Demand demand;
    demand.add(0, 2);
    EXPECT_FALSE(demand.isHigh());
}

class PaceTest : public testing::Test {
protected:
    void come(int count, std::chrono::nanoseconds apart) {
        for (int at = 0; at < count; ++at)
            pace.arrived(now += apart);
    }

    int began = 0;
    Pace pace{[this] { ++began; }};
    Pace::Clock::time_point now = Pace::Clock::now();
    std::vector<std::uint32_t> gaps;
};

TEST_F(PaceTest, callsWorkWhatComesCloseTogetherOften) {
    come(1000, 3ms);
    come(31, 100us);
    come(1, 3ms);
    EXPECT_EQ(began, 0);
    come(40, 100us);
    EXPECT_EQ(began, 1);
    come(1000, 100us);
    EXPECT_EQ(began, 1) << "it has been told";
    pace.rest();
    come(100, 100us);
    EXPECT_EQ(began, 2);
}

TEST_F(PaceTest, tellsTheGapsOfWorkAlone) {
    come(1, 1s);
    come(2, 100us);
    come(1, 3ms);
    come(1, 50us);
    EXPECT_EQ(pace.take(gaps), 5U);
    EXPECT_THAT(gaps, ElementsAre(100000, 100000, 50000));
    EXPECT_EQ(pace.take(gaps), 0U);
    EXPECT_EQ(gaps.size(), 3U);
}

TEST_F(PaceTest, keepsTheLastGapsOfMany) {
    come(2000, 100us);
    come(100, 200us);
    EXPECT_EQ(pace.take(gaps), 2100U);
    EXPECT_EQ(gaps.size(), 512U);
    EXPECT_EQ(std::count(gaps.begin(), gaps.end(), 200000), 100);
}

TEST_F(PaceTest, costIsTheMeanWithoutTheLongestTenth) {
    std::vector<std::uint32_t> few(31, 100);
    EXPECT_FALSE(fusehost::typicalCost(few));
    std::vector<std::uint32_t> many(90, 100);
    many.insert(many.begin() + 20, 10, 1000000);
    EXPECT_EQ(fusehost::typicalCost(many), 100);
}

TEST_F(PaceTest, hasNobodyWaitUnlessItIsAllowed) {
    come(100, 20us);
    EXPECT_EQ(pace.waitingTime(), 0us);
    pace.allowWaiting(true);
    EXPECT_EQ(pace.waitingTime(), 50us);
    pace.allowWaiting(false);
    EXPECT_EQ(pace.waitingTime(), 0us);
}

TEST_F(PaceTest, hasNobodyWaitWhereRequestsMostlyComeLater) {
    pace.allowWaiting(true);
    EXPECT_EQ(pace.waitingTime(), 0us) << "before any work";
    come(100, 20us);
    for (int at = 0; at < 3; ++at) {
        EXPECT_EQ(pace.waitingTime(), 50us);
        pace.waited(60us, false);
    }
    pace.waited(60us, false);
    EXPECT_EQ(pace.waitingTime(), 0us);
    for (int at = 0; at < 5; ++at)
        pace.waited(90us, true); // of which being woken took the larger part
    EXPECT_EQ(pace.waitingTime(), 50us);
    for (int at = 0; at < 4; ++at)
        pace.waited(200us, true);
    EXPECT_EQ(pace.waitingTime(), 0us);
}

} // namespace
} // namespace fusehosttests
