#include "volume/KemviAttributes.h"
#include "volume/KemviItem.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <type_traits>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using fskit::FSItemAttribute;
using kemvi::KemviItem;

std::uint64_t idFor(std::string_view path) {
    return static_cast<std::uint64_t>(KemviItem::identifierFor(path));
}

void expectTime(timespec actual, std::int64_t seconds, long nanoseconds) {
    EXPECT_EQ(actual.tv_sec, seconds);
    EXPECT_EQ(actual.tv_nsec, nanoseconds);
}

TEST(Identity, ofTheRootIsTheRootDirectory) {
    EXPECT_EQ(KemviItem::identifierFor("/"), fskit::FSItemID::rootDirectory);
}

TEST(Identity, ofAnyOtherPathIsTheHashOfItsBytes) {
    EXPECT_EQ(idFor("/a"), 0x07d66707b49cd92dU);
    EXPECT_EQ(idFor("/a"), 564752086074186029U);
    EXPECT_EQ(idFor("/a/b"), 0x363e289cb38ee0ccU);
    EXPECT_EQ(idFor("/a/b"), 3908606180096663756U);
}

TEST(Identity, ofTheEmptyPathIsTheStartOfTheHash) {
    EXPECT_EQ(idFor(""), 0xcbf29ce484222325U);
}

TEST(Identity, takesThePathAsItIsWritten) {
    EXPECT_NE(idFor("/a"), idFor("a"));
    EXPECT_NE(idFor("/a"), idFor("/a/"));
    EXPECT_NE(idFor("//"), idFor("/"));
    EXPECT_GE(idFor("//"), 3U);
}

TEST(Identity, countsBytesAboveAsciiAsUnsigned) {
    EXPECT_EQ(idFor("\xC3\xA9"), 0x0ac21707b7181e01U);
}

// Found by lattice reduction: their hashes are 0, 1 and 2.
TEST(Identity, neverFallsOnAReservedValue) {
    EXPECT_EQ(idFor("/affmjmqs\x0c>\x0f"
                    "53\'>7:\x08"),
              3U);
    EXPECT_EQ(idFor("/to2ard*|\x15"
                    "7\x0b"
                    "kvz0s}\x0f"),
              4U);
    EXPECT_EQ(idFor("/kiaytd=?8\rzx9\x01y:t\x02"), 5U);
}

TEST(ParentPath, dropsTheLastComponent) {
    EXPECT_EQ(KemviItem::parentPath("/a/b/c"), "/a/b");
    EXPECT_EQ(KemviItem::parentPath("/a/b"), "/a");
    EXPECT_EQ(KemviItem::parentPath("a/b"), "/a");
}

TEST(ParentPath, ofOneComponentOrNoneIsTheRoot) {
    EXPECT_EQ(KemviItem::parentPath("/"), "/");
    EXPECT_EQ(KemviItem::parentPath("/a"), "/");
    EXPECT_EQ(KemviItem::parentPath("a"), "/");
    EXPECT_EQ(KemviItem::parentPath(""), "/");
    EXPECT_EQ(KemviItem::parentPath("///"), "/");
    EXPECT_EQ(KemviItem::parentPath("//a//"), "/");
}

TEST(ParentPath, countsRunsOfSlashesAsOne) {
    EXPECT_EQ(KemviItem::parentPath("/a/b/"), "/a");
    EXPECT_EQ(KemviItem::parentPath("/a//b/"), "/a");
    EXPECT_EQ(KemviItem::parentPath("//a///b//c//"), "/a/b");
}

TEST(JoinPath, putsOneSlashBetweenUnlessTheDirectoryIsTheRoot) {
    EXPECT_EQ(kemvi::joinPath("/", "x"), "/x");
    EXPECT_EQ(kemvi::joinPath("/a", "x"), "/a/x");
}

TEST(JoinPath, takesDirectoryAndNameAsTheyStand) {
    EXPECT_EQ(kemvi::joinPath("/a/", "x"), "/a//x");
    EXPECT_EQ(kemvi::joinPath("", "x"), "/x");
    EXPECT_EQ(kemvi::joinPath("/a", "../b"), "/a/../b");
    EXPECT_EQ(kemvi::joinPath("/a", ""), "/a/");
}

TEST(Timespec, splitsSecondsAndNanoseconds) {
    expectTime(kemvi::timespecFor({1.25}), 1, 250'000'000);
    expectTime(kemvi::timespecFor({0.0}), 0, 0);
}

TEST(Timespec, roundsSecondsDownBefore1970) {
    expectTime(kemvi::timespecFor({-1.5}), -2, 500'000'000);
    expectTime(kemvi::timespecFor({-1.0}), -1, 0);
}

TEST(Timespec, cutsFractionsOfANanosecondOff) {
    expectTime(kemvi::timespecFor({0.9999999999}), 0, 999'999'999);
}

TEST(Timespec, staysBelowAWholeSecondOfNanoseconds) {
    expectTime(kemvi::timespecFor({-1e-30}), -1, 999'999'999);
}

TEST(Timespec, bearsTheLargestSecondsThatFit) {
    EXPECT_EQ(kemvi::timespecFor({-9223372036854775808.0}).tv_sec, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(kemvi::timespecFor({9223372036854774784.0}).tv_sec, 9223372036854774784);
}

TEST(TimespecDeathTest, stopsForATimeThatDoesNotFit) {
    EXPECT_DEATH(kemvi::timespecFor({9223372036854775808.0}), "does not fit");
    EXPECT_DEATH(kemvi::timespecFor({-9223372036854777856.0}), "does not fit");
    EXPECT_DEATH(kemvi::timespecFor({std::numeric_limits<double>::infinity()}), "does not fit");
    EXPECT_DEATH(kemvi::timespecFor({std::nan("")}), "does not fit");
}

TEST(AttributeRecord, ofAFile) {
    const fskit::FSItemAttributes record = kemvi::attributes("/a/b", false, 10, std::nullopt);
    EXPECT_EQ(record.type(), fskit::FSItemType::file);
    EXPECT_EQ(record.mode(), S_IFREG | 0644U);
    EXPECT_EQ(record.mode(), 0100644U);
    EXPECT_EQ(record.linkCount(), 1U);
    EXPECT_EQ(record.uid(), getuid());
    EXPECT_EQ(record.gid(), getgid());
    EXPECT_EQ(record.size(), 10U);
    EXPECT_EQ(record.allocSize(), 4096U);
    EXPECT_EQ(static_cast<std::uint64_t>(record.fileID()), idFor("/a/b"));
    EXPECT_EQ(static_cast<std::uint64_t>(record.parentID()), idFor("/a"));
    EXPECT_FALSE(record.supportsLimitedXAttrs());
}

TEST(AttributeRecord, ofADirectory) {
    const fskit::FSItemAttributes record = kemvi::attributes("/d", true, 0, std::nullopt);
    EXPECT_EQ(record.type(), fskit::FSItemType::directory);
    EXPECT_EQ(record.mode(), 040755U);
    EXPECT_EQ(record.linkCount(), 2U);
    EXPECT_EQ(record.allocSize(), 0U);
}

TEST(AttributeRecord, setsExactlyWhatTheVolumeKnows) {
    const FSItemAttribute expected = FSItemAttribute::type | FSItemAttribute::mode | FSItemAttribute::linkCount |
                                     FSItemAttribute::uid | FSItemAttribute::gid | FSItemAttribute::size |
                                     FSItemAttribute::allocSize | FSItemAttribute::fileID | FSItemAttribute::parentID |
                                     FSItemAttribute::supportsLimitedXAttrs | FSItemAttribute::modifyTime |
                                     FSItemAttribute::changeTime | FSItemAttribute::accessTime |
                                     FSItemAttribute::birthTime | FSItemAttribute::addedTime;
    EXPECT_EQ(kemvi::attributes("/a", false, 0, std::nullopt).validAttributes(), expected);
}

TEST(AttributeRecord, ofTheRootHasTheReservedIdentifiers) {
    const fskit::FSItemAttributes record = kemvi::attributes("/", true, 0, std::nullopt);
    EXPECT_EQ(record.fileID(), fskit::FSItemID::rootDirectory);
    EXPECT_EQ(record.parentID(), fskit::FSItemID::parentOfRoot);
}

TEST(AttributeRecord, directlyInTheRootHasTheRootForParent) {
    const fskit::FSItemAttributes record = kemvi::attributes("/x", false, 0, std::nullopt);
    EXPECT_EQ(static_cast<std::uint64_t>(record.fileID()), idFor("/x"));
    EXPECT_EQ(record.parentID(), fskit::FSItemID::rootDirectory);
}

TEST(AttributeRecord, ofAnUntidyPathHasTheIdentifierOfItsTidyParent) {
    EXPECT_EQ(static_cast<std::uint64_t>(kemvi::attributes("/a//b/", false, 0, std::nullopt).parentID()), idFor("/a"));
}

TEST(AttributeRecord, raisesTheAllocatedSizeToWholeBlocks) {
    const auto sizes = [](std::int64_t size) {
        const fskit::FSItemAttributes record = kemvi::attributes("/a", false, size, std::nullopt);
        return std::pair(record.size(), record.allocSize());
    };
    using Sizes = std::pair<std::uint64_t, std::uint64_t>;
    EXPECT_EQ(sizes(-1), Sizes(0, 0));
    EXPECT_EQ(sizes(std::numeric_limits<std::int64_t>::min()), Sizes(0, 0));
    EXPECT_EQ(sizes(0), Sizes(0, 0));
    EXPECT_EQ(sizes(1), Sizes(1, 4096));
    EXPECT_EQ(sizes(4096), Sizes(4096, 4096));
    EXPECT_EQ(sizes(4097), Sizes(4097, 8192));
    EXPECT_EQ(sizes(0x7fffffffffffe001), Sizes(0x7fffffffffffe001, 0x7ffffffffffff000)); // 8190 below the largest
}

TEST(AttributeRecordDeathTest, stopsForASizeWithin4095OfTheLargest) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(kemvi::attributes("/a", false, largest - 4096, std::nullopt).allocSize(), 0x7ffffffffffff000U);
    EXPECT_DEATH(kemvi::attributes("/a", false, largest - 4095, std::nullopt), "overflows");
    EXPECT_DEATH(kemvi::attributes("/a", true, largest, std::nullopt), "overflows");
}

TEST(AttributeRecord, givesAllFiveTimesTheModificationTime) {
    const fskit::FSItemAttributes record = kemvi::attributes("/a", false, 0, foundation::Date{1.25});
    for (const timespec time :
         {record.modifyTime(), record.changeTime(), record.accessTime(), record.birthTime(), record.addedTime()})
        expectTime(time, 1, 250'000'000);
}

TEST(AttributeRecord, withoutAModificationTimeShowsTheEpoch) {
    const fskit::FSItemAttributes record = kemvi::attributes("/a", false, 0, std::nullopt);
    for (const timespec time :
         {record.modifyTime(), record.changeTime(), record.accessTime(), record.birthTime(), record.addedTime()})
        expectTime(time, 0, 0);
}

TEST(AttributeRecord, takesTheOwnerItIsGiven) {
    const fskit::FSItemAttributes record = kemvi::attributes("/a", false, 0, std::nullopt, kemvi::Owner{7, 8});
    EXPECT_EQ(record.uid(), 7U);
    EXPECT_EQ(record.gid(), 8U);
}

TEST(Item, keepsTheValuesItIsMadeOf) {
    const KemviItem item("/x//y", fskit::FSItemID{99}, true, -5, foundation::Date{3});
    EXPECT_EQ(item.path(), "/x//y");
    EXPECT_EQ(item.identifier(), fskit::FSItemID{99});
    EXPECT_TRUE(item.isDirectory());
    EXPECT_EQ(item.size(), -5);
    EXPECT_EQ(item.modifiedAt(), foundation::Date{3});
}

TEST(Item, ofAStatTakesItsPathsIdentifierAndDropsTheName) {
    kemvi::KemviFileStat stat;
    stat.path = "/a/b";
    stat.name = "something else";
    stat.size = 5;
    stat.modifiedAt = foundation::Date{3};
    const KemviItem item(stat);
    EXPECT_EQ(item.path(), "/a/b");
    EXPECT_EQ(static_cast<std::uint64_t>(item.identifier()), idFor("/a/b"));
    EXPECT_FALSE(item.isDirectory());
    EXPECT_EQ(item.size(), 5);
    EXPECT_EQ(item.modifiedAt(), foundation::Date{3});
}

TEST(Item, cannotBeMadeOfNothing) {
    EXPECT_FALSE(std::is_default_constructible_v<KemviItem>);
}

TEST(Item, knowsItsFullAttributesWithoutAskingAnyone) {
    const KemviItem item("/a/b", KemviItem::identifierFor("/a/b"), false, 4097, foundation::Date{1.25});
    const auto known = item.knownAttributes();
    ASSERT_TRUE(known);
    const fskit::FSItemAttributes made = kemvi::attributes("/a/b", false, 4097, foundation::Date{1.25});
    EXPECT_EQ(known->validAttributes(), made.validAttributes());
    EXPECT_EQ(known->size(), 4097U);
    EXPECT_EQ(known->allocSize(), 8192U);
    EXPECT_EQ(known->fileID(), made.fileID());
    EXPECT_EQ(known->parentID(), made.parentID());
    EXPECT_EQ(known->mode(), made.mode());
    expectTime(known->modifyTime(), 1, 250'000'000);
}

TEST(Item, makesTheItemOfAMemberWithoutAskingAnyone) {
    const KemviItem root("/", fskit::FSItemID::rootDirectory, true, 0, std::nullopt);
    const auto folder = root.member("a", fskit::FSItemType::directory, 0);
    const auto file = folder->member("b", fskit::FSItemType::file, 5);
    const auto& item = dynamic_cast<const KemviItem&>(*file);
    EXPECT_TRUE(dynamic_cast<const KemviItem&>(*folder).isDirectory());
    EXPECT_EQ(item.path(), "/a/b");
    EXPECT_EQ(static_cast<std::uint64_t>(item.identifier()), idFor("/a/b"));
    EXPECT_FALSE(item.isDirectory());
    EXPECT_EQ(item.size(), 5);
    EXPECT_FALSE(item.modifiedAt());
}

TEST(Item, knowsAMemberByTheIdentifierOfItsPath) {
    const KemviItem root("/", fskit::FSItemID::rootDirectory, true, 0, std::nullopt);
    const KemviItem folder("/a", KemviItem::identifierFor("/a"), true, 0, std::nullopt);
    EXPECT_TRUE(root.hasMember("a", KemviItem::identifierFor("/a")));
    EXPECT_TRUE(folder.hasMember("b", KemviItem::identifierFor("/a/b")));
    EXPECT_FALSE(folder.hasMember("b", KemviItem::identifierFor("/b")));
    EXPECT_FALSE(folder.hasMember("b", KemviItem::identifierFor("/a//b")));
}

TEST(Item, isTheSameAsAnyOtherOfItsPathWhateverTheIdentifier) {
    const fskit::FSItemID one{7};
    const KemviItem item("/a", one, false, 0, std::nullopt);
    EXPECT_TRUE(item.isSame(KemviItem("/a", fskit::FSItemID{8}, true, 5, foundation::Date{1})));
    EXPECT_FALSE(item.isSame(KemviItem("/b", one, false, 0, std::nullopt)));
    EXPECT_FALSE(item.isSame(fskit::FSItem()));
}

} // namespace
