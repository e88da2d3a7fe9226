#include "hosts/fuse/monitor/Monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <poll.h>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using fusehost::KernelOperation;
using fusehost::LatencyBuckets;
using fusehost::LatencyHistogram;
using fusehost::Monitor;
using fusehost::RequestEvent;
using fusehost::RequestUnderWay;
using fusehost::UnderWayBoard;
using fusehost::Version;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr Monitor::Clock::time_point start{1h};

// Histograms

TEST(LatencyHistograms, sortEveryDurationIntoTheBucketThatHasItBetweenItsBounds) {
    for (std::uint64_t value = 1; value < (std::uint64_t{1} << 43); value = value * 17 / 16 + 1) {
        const std::size_t index = LatencyBuckets::indexOf(value);
        ASSERT_LT(index, LatencyBuckets::count);
        ASSERT_LE(LatencyBuckets::lowerBound(index), value);
        ASSERT_GT(LatencyBuckets::lowerBound(index + 1), value);
    }
    EXPECT_EQ(LatencyBuckets::lowerBound(LatencyBuckets::count), std::uint64_t{1} << 43);
    EXPECT_EQ(LatencyBuckets::indexOf(~std::uint64_t{0}), LatencyBuckets::count - 1) << "longer than the longest";
}

TEST(LatencyHistograms, tellADurationToWithinSixPercent) {
    for (std::uint64_t value = 256; value < (std::uint64_t{1} << 43); value += value / 61 + 1) {
        const double told = LatencyBuckets::middleOf(LatencyBuckets::indexOf(value));
        ASSERT_LE(std::abs(told - static_cast<double>(value)), 0.06 * static_cast<double>(value)) << value;
    }
}

TEST(LatencyHistograms, haveABucketBeginAtEveryPowerOfTwo) {
    for (int exponent = 8; exponent < 43; ++exponent) {
        const std::uint64_t power = std::uint64_t{1} << exponent;
        EXPECT_EQ(LatencyBuckets::lowerBound(LatencyBuckets::indexOf(power)), power);
    }
}

TEST(LatencyHistograms, tellHowManySumAndLongest) {
    LatencyHistogram histogram;
    EXPECT_EQ(histogram.read().count(), 0U);
    EXPECT_EQ(histogram.read().quantile(0.5), 0ns);
    histogram.add(3us);
    histogram.add(1us);
    histogram.add(-1us); // a clock that has gone back
    const auto counts = histogram.read();
    EXPECT_EQ(counts.count(), 3U);
    EXPECT_EQ(counts.sum, 4us);
    EXPECT_EQ(counts.longest, 3us);
}

TEST(LatencyHistograms, tellQuantiles) {
    LatencyHistogram histogram;
    for (int i = 1; i <= 1000; ++i)
        histogram.add(std::chrono::microseconds(i));
    const auto counts = histogram.read();
    const auto expectNear = [&](double part, double microseconds) {
        EXPECT_NEAR(static_cast<double>(counts.quantile(part).count()), 1000 * microseconds, 60 * microseconds) << part;
    };
    expectNear(0, 1);
    expectNear(0.5, 500);
    expectNear(0.9, 900);
    expectNear(0.99, 990);
    EXPECT_LE(counts.quantile(1), counts.longest);
    expectNear(1, 1000);
}

// Versions

TEST(Versions, haveReadAgainWhatWasWrittenMeanwhile) {
    Version version;
    int left = 0;
    int right = 0;
    const auto write = [&] { version.write([&] { left = right = right + 1; }); };
    std::vector<std::pair<int, int>> seen;
    version.read([&] {
        const int first = left;
        if (seen.size() < 2)
            write();
        seen.emplace_back(first, right);
    });
    EXPECT_THAT(seen, ElementsAre(Pair(0, 1), Pair(1, 2), Pair(2, 2)));
}

TEST(Versions, areNotReadWhileSomethingIsWritten) {
    Version version;
    int reads = 0;
    const auto tryRead = [&] { return version.tryRead([&] { ++reads; }); };
    EXPECT_TRUE(tryRead());
    version.write([&] { EXPECT_FALSE(tryRead()); });
    EXPECT_EQ(reads, 1);
    EXPECT_TRUE(tryRead());
    EXPECT_FALSE(version.tryRead([&] { version.write([] {}); })) << "overtaken";
    EXPECT_TRUE(tryRead());
    EXPECT_EQ(reads, 3);
}

// What is under way

TEST(UnderWayBoards, showWhatWasPostedUntilItIsCleared) {
    UnderWayBoard board;
    EXPECT_FALSE(board.read());
    board.post(KernelOperation::read, "/notes/todo.txt", 1234, 1000, start);
    const auto shown = board.read();
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->number, 1U);
    EXPECT_EQ(shown->operation, KernelOperation::read);
    EXPECT_EQ(shown->path, "/notes/todo.txt");
    EXPECT_EQ(shown->thread, 1234U);
    EXPECT_EQ(shown->user, 1000U);
    EXPECT_EQ(shown->since, start);
    board.clear();
    EXPECT_FALSE(board.read());
    board.post(KernelOperation::idle, "", 0, ~0U, start);
    EXPECT_EQ(board.read()->path, "") << "nothing of the one before";
    EXPECT_EQ(board.read()->number, 2U);
    EXPECT_EQ(board.read()->user, ~0U);
}

TEST(UnderWayBoards, showTheEndOfAPathThatIsTooLong) {
    UnderWayBoard board;
    const std::string fits(RequestUnderWay::longestPath, 'x');
    board.post(KernelOperation::open, fits, 1, 1, start);
    EXPECT_EQ(board.read()->path, fits);
    board.post(KernelOperation::open, "/" + fits + "end", 1, 1, start);
    EXPECT_EQ(board.read()->path, "..." + std::string(RequestUnderWay::longestPath - 6, 'x') + "end");
}

TEST(UnderWayBoards, neverShowHalfOfOneRequestAndHalfOfAnother) {
    UnderWayBoard board;
    const std::jthread executing([&](const std::stop_token& ends) {
        for (std::uint32_t i = 0; !ends.stop_requested(); ++i) {
            const auto letter = static_cast<char>('a' + i % 26);
            board.post(KernelOperation::open, std::string(1 + 8 * (i % 26), letter), i % 26, i % 26, start);
        }
    });
    int seen = 0;
    while (seen < 20'000) {
        const auto shown = board.read();
        if (!shown)
            continue;
        ++seen;
        const std::uint32_t which = shown->thread;
        ASSERT_EQ(shown->user, which);
        ASSERT_EQ(shown->path, std::string(1 + 8 * which, static_cast<char>('a' + which)));
        ASSERT_EQ((shown->number - 1) % 26, which);
    }
}

// The monitor

class MonitorTest : public testing::Test {
protected:
    void execute(KernelOperation operation, std::chrono::nanoseconds time, Monitor::Outcome outcome = {},
                 std::chrono::nanoseconds waited = 0ns) {
        monitor->begin({operation, "/a", 1, 2, start, start + waited});
        monitor->end(start + time, outcome);
    }

    std::unique_ptr<Monitor> monitor = std::make_unique<Monitor>();
};

TEST_F(MonitorTest, countsByOperationWithErrorsAndBytes) {
    EXPECT_THAT(monitor->read().operations, IsEmpty());
    execute(KernelOperation::read, 10us, {0, 4096});
    execute(KernelOperation::read, 30us, {EIO, std::nullopt});
    execute(KernelOperation::read, 20us, {0, 0});
    execute(KernelOperation::lookup, 5us, {ENOENT, std::nullopt});
    execute(KernelOperation::lookup, 5us, {ENOENT, std::nullopt});
    const auto counts = monitor->read();
    ASSERT_EQ(counts.operations.size(), 2U);
    const auto& lookup = counts.operations[0];
    EXPECT_EQ(lookup.operation, KernelOperation::lookup);
    EXPECT_EQ(lookup.latency.count(), 2U);
    EXPECT_THAT(lookup.errors, ElementsAre(Pair(ENOENT, 2U)));
    const auto& read = counts.operations[1];
    EXPECT_EQ(read.operation, KernelOperation::read);
    EXPECT_EQ(read.latency.sum, 60us);
    EXPECT_EQ(read.bytes, 4096U);
    EXPECT_THAT(read.errors, ElementsAre(Pair(EIO, 1U)));
    EXPECT_EQ(monitor->requests(), 5U);
}

TEST_F(MonitorTest, countsNoIdleWorkAsARequest) {
    execute(KernelOperation::idle, 10us);
    EXPECT_THAT(monitor->read().operations, IsEmpty());
    EXPECT_EQ(monitor->requests(), 0U);
}

TEST_F(MonitorTest, keepsAnErrorNumberThatNoKernelHas) {
    execute(KernelOperation::open, 1us, {100'000, std::nullopt});
    EXPECT_THAT(monitor->read().operations.at(0).errors, ElementsAre(Pair(133, 1U)));
}

TEST_F(MonitorTest, tellsHowLongRequestsHaveWaitedForOthers) {
    execute(KernelOperation::open, 100us, {}, 60us);
    execute(KernelOperation::open, 100us);
    EXPECT_EQ(monitor->read().waited, 60us);
    EXPECT_EQ(monitor->read().operations.at(0).latency.sum, 200us);
}

TEST_F(MonitorTest, showsWhatIsUnderWayWhileItIs) {
    monitor->begin({KernelOperation::open, "/a", 1, 2, start, start});
    EXPECT_EQ(monitor->underWay()->path, "/a");
    EXPECT_EQ(monitor->requests(), 0U);
    monitor->end(start, {});
    EXPECT_FALSE(monitor->underWay());
    EXPECT_EQ(monitor->requests(), 1U);
}

TEST_F(MonitorTest, keepsGauges) {
    monitor->setTree({1, 2, 3, 4});
    monitor->setWaiting(5);
    const auto counts = monitor->read();
    EXPECT_EQ(counts.tree.nodes, 1U);
    EXPECT_EQ(counts.tree.openFiles, 2U);
    EXPECT_EQ(counts.tree.openItems, 3U);
    EXPECT_EQ(counts.tree.hiddenFiles, 4U);
    EXPECT_EQ(counts.waiting, 5U);
}

class Listening final : public fusehost::RequestListener {
public:
    void requestEnded(const RequestEvent& event) noexcept override { paths.push_back(event.path); }

    std::vector<std::string> paths;
};

TEST_F(MonitorTest, tellsListenersFromWhenTheyAreAddedUntilTheyAreRemoved) {
    Listening first;
    Listening second;
    RequestEvent event;
    EXPECT_FALSE(monitor->isListenedTo());
    monitor->add(first);
    EXPECT_TRUE(monitor->isListenedTo());
    event.path = "/a";
    monitor->tell(event);
    monitor->add(second);
    event.path = "/b";
    monitor->tell(event);
    monitor->remove(first);
    EXPECT_TRUE(monitor->isListenedTo());
    event.path = "/c";
    monitor->tell(event);
    monitor->remove(second);
    EXPECT_FALSE(monitor->isListenedTo());
    EXPECT_THAT(first.paths, ElementsAre("/a", "/b"));
    EXPECT_THAT(second.paths, ElementsAre("/b", "/c"));
}

// Resting

TEST(RestingAtAMonitor, endsWithTheNextRequestAlone) {
    const auto monitor = std::make_unique<Monitor>();
    const auto isWoken = [&] {
        pollfd event{monitor->workBegan().number(), POLLIN, 0};
        return poll(&event, 1, 0) == 1;
    };
    monitor->begin({KernelOperation::open, "/a", 1, 2, start, start});
    EXPECT_FALSE(isWoken()) << "nobody rests";
    monitor->end(start, {});
    monitor->rest();
    EXPECT_FALSE(isWoken());
    monitor->begin({KernelOperation::open, "/a", 1, 2, start, start});
    EXPECT_TRUE(isWoken());
    monitor->workBegan().clear();
    monitor->end(start, {});
    monitor->begin({KernelOperation::open, "/a", 1, 2, start, start});
    EXPECT_FALSE(isWoken()) << "once for each rest";
}

} // namespace
} // namespace fusehosttests
