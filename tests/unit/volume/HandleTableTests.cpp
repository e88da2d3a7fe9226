#include "volume/HandleTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kemvi {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr auto reading = HandleTable::Direction::reading;
constexpr auto writing = HandleTable::Direction::writing;
constexpr fskit::FSItemID one{11};
constexpr fskit::FSItemID other{12};

TEST(HandleTable, isEmptyAtFirst) {
    HandleTable table;
    EXPECT_EQ(table.find(reading, one), std::nullopt);
    EXPECT_EQ(table.take(writing, one), std::nullopt);
    EXPECT_THAT(table.all(reading), IsEmpty());
    EXPECT_THAT(table.takeAll(), IsEmpty());
}

TEST(HandleTable, keepsOneHandlePerItemAndDirection) {
    HandleTable table;
    EXPECT_TRUE(table.share(reading, one, {1, "/a"}).isOurs);
    EXPECT_TRUE(table.share(writing, one, {2, "/a"}).isOurs);
    EXPECT_TRUE(table.share(reading, other, {3, "/b"}).isOurs);
    EXPECT_EQ(table.find(reading, one), 1);
    EXPECT_EQ(table.find(writing, one), 2);
    EXPECT_EQ(table.find(reading, other), 3);
    EXPECT_EQ(table.find(writing, other), std::nullopt);
}

TEST(HandleTable, sharesTheFirstHandleAndLeavesTheSecondToWhoeverOpenedIt) {
    HandleTable table;
    table.share(reading, one, {1, "/a"});
    const auto second = table.share(reading, one, {2, "/same hash"});
    EXPECT_EQ(second.handle, 1);
    EXPECT_FALSE(second.isOurs);
    EXPECT_THAT(table.all(reading), UnorderedElementsAre(OpenHandle{1, "/a"}));
}

TEST(HandleTable, tellsASecondHandleOfTheSameNumberFromTheFirst) {
    HandleTable table;
    table.share(reading, one, {1, "/a"});
    EXPECT_FALSE(table.share(reading, one, {1, "/a"}).isOurs);
}

TEST(HandleTable, keepsHandlesOfAnyNumber) {
    HandleTable table;
    table.share(reading, one, {0, "/a"});
    table.share(writing, one, {-1, "/a"});
    EXPECT_EQ(table.find(reading, one), 0);
    EXPECT_EQ(table.find(writing, one), -1);
}

TEST(HandleTable, forgetsAHandleThatIsTaken) {
    HandleTable table;
    table.share(reading, one, {1, "/a"});
    table.share(writing, one, {2, "/a"});
    EXPECT_EQ(table.take(reading, one), (OpenHandle{1, "/a"}));
    EXPECT_EQ(table.take(reading, one), std::nullopt);
    EXPECT_EQ(table.find(writing, one), 2);
    EXPECT_TRUE(table.share(reading, one, {3, "/a"}).isOurs);
}

TEST(HandleTable, givesAllOfOneDirectionAndKeepsThem) {
    HandleTable table;
    table.share(writing, one, {1, "/a"});
    table.share(writing, other, {2, "/b"});
    table.share(reading, one, {3, "/a"});
    EXPECT_THAT(table.all(writing), UnorderedElementsAre(OpenHandle{1, "/a"}, OpenHandle{2, "/b"}));
    EXPECT_EQ(table.find(writing, one), 1);
}

TEST(HandleTable, takesAllThoseForReadingFirst) {
    HandleTable table;
    table.share(writing, one, {1, "/a"});
    table.share(reading, one, {2, "/a"});
    table.share(writing, other, {3, "/b"});
    const auto taken = table.takeAll();
    ASSERT_EQ(taken.size(), 3U);
    EXPECT_EQ(taken[0], (OpenHandle{2, "/a"}));
    EXPECT_THAT(table.takeAll(), IsEmpty());
    EXPECT_EQ(table.find(writing, other), std::nullopt);
}

TEST(HandleTable, sharesOneHandleAmongThreadsThatOpenAtOnce) {
    constexpr int threads = 8;
    constexpr std::uint64_t items = 500;
    HandleTable table;
    std::atomic<int> ours{0};
    std::vector<std::thread> openers;
    for (int number = 0; number < threads; ++number)
        openers.emplace_back([&, number] {
            for (std::uint64_t item = 0; item < items; ++item)
                if (table.share(reading, fskit::FSItemID{item}, {number, "/a"}).isOurs)
                    ++ours;
        });
    for (std::thread& opener : openers)
        opener.join();
    EXPECT_EQ(ours, static_cast<int>(items));
    EXPECT_EQ(table.all(reading).size(), items);
}

} // namespace
} // namespace kemvi
