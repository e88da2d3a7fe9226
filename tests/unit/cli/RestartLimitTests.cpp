#include "cli/RestartLimit.h"

#include <gtest/gtest.h>
#include <optional>

namespace cli {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

class RestartLimits : public testing::Test {
protected:
    std::optional<milliseconds> failAfter(milliseconds time) {
        now += time;
        return limit.failed(now);
    }

    RestartLimit limit;
    RestartLimit::Clock::time_point now{1h};
};

TEST_F(RestartLimits, pauseTwiceAsLongAfterEachFailureUpToTenSeconds) {
    for (const auto pause : {100ms, 200ms, 400ms, 800ms, 1600ms, 3200ms, 6400ms, 10000ms, 10000ms})
        EXPECT_EQ(failAfter(1ms), pause);
}

TEST_F(RestartLimits, areReachedByTenFailuresInARow) {
    for (int failure = 1; failure < 10; ++failure)
        EXPECT_TRUE(failAfter(1s));
    EXPECT_EQ(failAfter(1s), std::nullopt);
}

TEST_F(RestartLimits, areNotReachedByFailuresFarApart) {
    for (int failure = 1; failure < 100; ++failure)
        EXPECT_TRUE(failAfter(14s)) << failure;
    EXPECT_EQ(failAfter(14s), 10s);
}

TEST_F(RestartLimits, beginAnewAfterAHelperThatServedForAWhile) {
    for (int failure = 1; failure < 10; ++failure)
        EXPECT_TRUE(failAfter(1s));
    limit.began(now);
    EXPECT_EQ(failAfter(10s), 100ms);
    EXPECT_EQ(limit.failures(), 1U);
}

TEST_F(RestartLimits, goOnAfterAHelperThatServedForAMoment) {
    for (int failure = 1; failure < 10; ++failure) {
        limit.began(now);
        EXPECT_TRUE(failAfter(9s)) << failure;
    }
    limit.began(now);
    EXPECT_EQ(failAfter(9s), std::nullopt);
}

TEST_F(RestartLimits, forgetWhatWasBeforeSomebodyLookedAfterIt) {
    for (int failure = 1; failure < 10; ++failure)
        failAfter(1s);
    limit.forget();
    EXPECT_EQ(failAfter(1s), 100ms);
}

} // namespace
} // namespace cli
