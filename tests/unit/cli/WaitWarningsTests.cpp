#include "cli/WaitWarnings.h"

#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace cli {
namespace {

using namespace std::chrono_literals;
using fusehost::RequestUnderWay;

class Warnings : public testing::Test {
protected:
    /// What is told when the request has waited so long.
    std::string at(std::chrono::milliseconds waited, std::size_t waiting = 0) {
        return text(warnings.look(
            request, [=] { return waiting; }, request.since + waited));
    }

    static std::string text(const std::optional<WaitWarnings::Warning>& warning) {
        return warning ? warning->beginning + warning->path + warning->end : std::string();
    }

    RequestUnderWay request{7, fusehost::KernelOperation::read, "/a", 4711, 0, WaitWarnings::Clock::time_point{1h}};
    WaitWarnings warnings;
    const std::function<std::size_t()> nobody = [] { return 0; };
};

TEST_F(Warnings, comeAfterFiveSecondsThenThirtyThenEveryFiveMinutes) {
    std::vector<int> told;
    for (int second = 0; second <= 1000; ++second)
        if (!at(std::chrono::seconds(second)).empty())
            told.push_back(second);
    EXPECT_EQ(told, (std::vector<int>{5, 30, 300, 600, 900}));
}

TEST_F(Warnings, sayWhatWaitsForWhomAndHowLong) {
    EXPECT_EQ(at(5500ms), "a request (read) of /a for process 4711 has been waiting for the helper for 5 s");
    EXPECT_EQ(at(31s, 1), "a request (read) of /a for process 4711 has been waiting for the helper for 31 s; 1 more "
                          "waits behind it");
}

TEST_F(Warnings, tellWhenItIsOver) {
    at(5s);
    EXPECT_EQ(text(warnings.look(std::nullopt, nobody, request.since + 12s)),
              "a request (read) of /a for process 4711 is over after 12 s");
    EXPECT_EQ(text(warnings.look(std::nullopt, nobody, request.since + 13s)), "");
}

TEST_F(Warnings, tellItAlsoWhereTheNextOneHasBegun) {
    at(5s);
    RequestUnderWay next = request;
    next.number = 8;
    next.since += 12s;
    EXPECT_EQ(text(warnings.look(next, nobody, next.since)),
              "a request (read) of /a for process 4711 is over after 12 s");
    EXPECT_EQ(text(warnings.look(next, nobody, next.since + 1s)), "");
}

TEST_F(Warnings, sayNothingOfShortRequests) {
    EXPECT_EQ(at(4900ms), "");
    EXPECT_EQ(text(warnings.look(std::nullopt, nobody, request.since + 12s)), "");
}

} // namespace
} // namespace cli
