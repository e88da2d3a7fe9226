#include "cli/watch/QuietTime.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

using namespace std::chrono_literals;

const QuietTime::Clock::time_point start{1h};

TEST(AQuietTime, isNotWaitedForWhileNothingHappens) {
    QuietTime time;
    EXPECT_EQ(time.left(start), std::nullopt);
    EXPECT_FALSE(time.isOver(start + 1h));
}

TEST(AQuietTime, isOverOnceWhenNothingHasHappenedForAWhile) {
    QuietTime time;
    time.saw(start);
    EXPECT_EQ(time.left(start + 30ms), 70ms);
    EXPECT_FALSE(time.isOver(start + 99ms));
    EXPECT_TRUE(time.isOver(start + 100ms));
    EXPECT_FALSE(time.isOver(start + 200ms));
    EXPECT_EQ(time.left(start + 200ms), std::nullopt);
}

TEST(AQuietTime, beginsAnewWithWhatHappensNext) {
    QuietTime time;
    time.saw(start);
    time.saw(start + 90ms);
    EXPECT_FALSE(time.isOver(start + 100ms));
    EXPECT_TRUE(time.isOver(start + 190ms));
    time.saw(start + 1s);
    EXPECT_EQ(time.left(start + 1s), 100ms);
}

TEST(AQuietTime, isNotWaitedForForever) {
    QuietTime time;
    for (auto at = 0ms; at < 2s; at += 50ms) {
        time.saw(start + at);
        EXPECT_FALSE(time.isOver(start + at));
    }
    time.saw(start + 2s);
    EXPECT_EQ(time.left(start + 3s), 0ms);
    EXPECT_TRUE(time.isOver(start + 2s));
}

} // namespace
} // namespace cli
