#include "suites/volume/VolumeFixture.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// Lookup, attributes and listing.
namespace volumesuite {
namespace {

constexpr std::uint64_t idOfA = 564752086074186029;   // of "/a"
constexpr std::uint64_t idOfAB = 3908606180096663756; // of "/a/b"
constexpr std::uint64_t rootID = 2;
constexpr foundation::Date noon{1714564800.25}; // 2024-05-01T12:00:00.25Z

class Lookup : public VolumeFixture {};

class Attributes : public VolumeFixture {};

class Enumeration : public VolumeFixture {
protected:
    void SetUp() override {
        helper_.on("readdir",
                   ScriptedAnswer::success("[" + testsupport::statJSON("/a/b", true, 0) + "," +
                                           testsupport::statJSON("/a/c", false, 5000, "1970-01-01T00:00:07.500Z") +
                                           "," + testsupport::statJSON("/a/d", false, -3) + "]"));
    }

    Item folder_ = volume_->makeItem("/a", true, 77, noon);
};

class ClientlessLookup : public ClientlessVolumeFixture {};

std::uint64_t idOf(VolumeUnderTest& volume, const Item& item) {
    return static_cast<std::uint64_t>(volume.facts(item).identifier());
}

bool operator==(timespec a, timespec b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

void expectAllTimes(const fskit::FSItemAttributes& record, timespec expected) {
    EXPECT_TRUE(record.modifyTime() == expected);
    EXPECT_TRUE(record.changeTime() == expected);
    EXPECT_TRUE(record.accessTime() == expected);
    EXPECT_TRUE(record.birthTime() == expected);
    EXPECT_TRUE(record.addedTime() == expected);
}

TEST_F(Lookup, asksTheHelperForTheJoinedPathAndMakesAnItemOfItsAnswer) {
    helper_.addStat("/a/b", false, 12, "1970-01-01T00:00:01.250Z");
    const ItemAnswer found = volume_->lookupItem("b", directory("/a"));
    EXPECT_EQ(found.error, success);
    EXPECT_EQ(found.name, "b");
    const kemvi::KemviItem& item = volume_->facts(found.item);
    EXPECT_EQ(item.path(), "/a/b");
    EXPECT_EQ(static_cast<std::uint64_t>(item.identifier()), idOfAB);
    EXPECT_FALSE(item.isDirectory());
    EXPECT_EQ(item.size(), 12);
    EXPECT_EQ(item.modifiedAt(), foundation::Date{1.25});
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /a/b"));
}

TEST_F(Lookup, inTheRootJoinsWithASingleSlash) {
    helper_.addStat("/a", true, 0);
    EXPECT_EQ(idOf(*volume_, volume_->lookupItem("a", root()).item), idOfA);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /a"));
}

TEST_F(Lookup, repliesPathAndNameAsTheHelperReportsThem) {
    helper_.on("getattr", ScriptedAnswer::success(R"({"path":"/Docs/README","name":"ReadMe","isDirectory":false})"));
    const ItemAnswer found = volume_->lookupItem("readme", root());
    EXPECT_EQ(found.name, "ReadMe");
    EXPECT_EQ(volume_->facts(found.item).path(), "/Docs/README");
}

TEST_F(Lookup, ofADotIsTheVerySameItem) {
    const Item folder = directory("/a");
    const ItemAnswer found = volume_->lookupItem(".", folder);
    EXPECT_EQ(found.error, success);
    EXPECT_EQ(found.item, folder);
    EXPECT_EQ(found.name, ".");
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lookup, ofTwoDotsHasTheParentsPathAndTheRootsIdentifier) {
    const ItemAnswer found = volume_->lookupItem("..", directory("/a/b"));
    EXPECT_EQ(found.error, success);
    EXPECT_EQ(found.name, "..");
    const kemvi::KemviItem& parent = volume_->facts(found.item);
    EXPECT_EQ(parent.path(), "/a");
    EXPECT_EQ(parent.identifier(), fskit::FSItemID::rootDirectory);
    EXPECT_TRUE(parent.isDirectory());
    EXPECT_EQ(parent.size(), 0);
    EXPECT_FALSE(parent.modifiedAt());
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lookup, ofTwoDotsInTheRootIsTheRootsPath) {
    const ItemAnswer found = volume_->lookupItem("..", root());
    EXPECT_EQ(volume_->facts(found.item).path(), "/");
    EXPECT_EQ(idOf(*volume_, found.item), rootID);
}

TEST_F(Lookup, ofAnEmptyNameIsInvalid) {
    const ItemAnswer found = volume_->lookupItem("", root());
    EXPECT_EQ(found.error, posix(posixErrno::EINVAL_));
    EXPECT_FALSE(found.item);
    EXPECT_FALSE(found.name);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lookup, ofANameThatIsNotTextIsInvalid) {
    EXPECT_EQ(volume_->lookupItem("caf\xE9", root()).error, posix(posixErrno::EINVAL_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lookup, namesAreNotNormalised) {
    volume_->lookupItem("e\xCC\x81 x", directory("/a"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /a/e\xCC\x81 x"));
}

TEST_F(Lookup, inAFileIsNotADirectory) {
    EXPECT_EQ(volume_->lookupItem("b", file("/a")).error, posix(posixErrno::ENOTDIR_));
    EXPECT_EQ(volume_->lookupItem("", file("/a")).error, posix(posixErrno::ENOTDIR_));
}

TEST_F(Lookup, inAForeignItemIsNotADirectory) {
    EXPECT_EQ(volume_->lookupItem("b", volume_->makeForeignItem()).error, posix(posixErrno::ENOTDIR_));
}

TEST_F(Lookup, ofAMissingNameRepliesTheHelpersError) {
    const ItemAnswer found = volume_->lookupItem("b", root());
    EXPECT_EQ(found.error, posix(posixErrno::ENOENT_, "no such file"));
    EXPECT_FALSE(found.item);
    EXPECT_FALSE(found.name);
}

TEST_F(Lookup, isAskedAnewEveryTime) {
    helper_.addStat("/a", false, 1);
    volume_->lookupItem("a", root());
    helper_.addStat("/a", false, 2);
    EXPECT_EQ(volume_->facts(volume_->lookupItem("a", root()).item).size(), 2);
}

TEST_F(Attributes, ofAnItemComeFreshFromTheHelper) {
    const Item item = volume_->makeItem("/a", false, 1, std::nullopt);
    helper_.addStat("/a", false, 4097, "1970-01-01T00:00:01.250Z");
    const AttributesAnswer answer = volume_->getAttributes(item);
    EXPECT_EQ(answer.error, success);
    ASSERT_TRUE(answer.attributes);
    EXPECT_EQ(answer.attributes->size(), 4097U);
    EXPECT_EQ(answer.attributes->allocSize(), 8192U);
    EXPECT_EQ(answer.attributes->type(), fskit::FSItemType::file);
    expectAllTimes(*answer.attributes, {1, 250'000'000});
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /a"));
}

TEST_F(Attributes, leaveTheItemAsItWas) {
    const Item item = volume_->makeItem("/a", false, 1, std::nullopt);
    helper_.addStat("/a", true, 99);
    volume_->getAttributes(item);
    EXPECT_EQ(volume_->facts(item).size(), 1);
    EXPECT_FALSE(volume_->facts(item).isDirectory());
}

TEST_F(Attributes, areThoseOfThePathThatTheHelperReports) {
    helper_.on("getattr", ScriptedAnswer::success(testsupport::statJSON("/a/b", false, 3)));
    const auto record = volume_->getAttributes(file("/elsewhere")).attributes;
    ASSERT_TRUE(record);
    EXPECT_EQ(static_cast<std::uint64_t>(record->fileID()), idOfAB);
    EXPECT_EQ(static_cast<std::uint64_t>(record->parentID()), idOfA);
}

TEST_F(Attributes, ofTheRootNeverAskTheHelper) {
    const AttributesAnswer answer = volume_->getAttributes(root());
    EXPECT_EQ(answer.error, success);
    ASSERT_TRUE(answer.attributes);
    EXPECT_EQ(static_cast<std::uint64_t>(answer.attributes->fileID()), rootID);
    EXPECT_EQ(answer.attributes->parentID(), fskit::FSItemID::parentOfRoot);
    EXPECT_EQ(answer.attributes->size(), 0U);
    expectAllTimes(*answer.attributes, {0, 0});
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Attributes, areAFullRecord) {
    helper_.addStat("/a", true, 0);
    const auto record = volume_->getAttributes(directory("/a")).attributes;
    ASSERT_TRUE(record);
    EXPECT_EQ(record->mode(), S_IFDIR | 0755U);
    EXPECT_EQ(record->linkCount(), 2U);
    EXPECT_EQ(record->uid(), getuid());
    EXPECT_EQ(record->gid(), getgid());
    EXPECT_TRUE(record->isValid(fskit::FSItemAttribute::supportsLimitedXAttrs));
    EXPECT_FALSE(record->supportsLimitedXAttrs());
}

TEST_F(Attributes, ofAForeignItemAreInvalid) {
    const AttributesAnswer answer = volume_->getAttributes(volume_->makeForeignItem());
    EXPECT_EQ(answer.error, posix(posixErrno::EINVAL_));
    EXPECT_FALSE(answer.attributes);
}

TEST_F(Attributes, replyTheHelpersError) {
    const AttributesAnswer answer = volume_->getAttributes(file("/gone"));
    EXPECT_EQ(answer.error, posix(posixErrno::ENOENT_, "no such file"));
    EXPECT_FALSE(answer.attributes);
}

TEST_F(Enumeration, ofAnEmptyDirectoryPacksOnlyTheDots) {
    helper_.on("readdir", ScriptedAnswer::success("[]"));
    const Listing listing = volume_->enumerateDirectory(folder_, {});
    EXPECT_EQ(listing.error, success);
    EXPECT_EQ(listing.verifier, 1U);
    ASSERT_EQ(listing.entries.size(), 2U);
    EXPECT_EQ(listing.entries[0].name, ".");
    EXPECT_EQ(listing.entries[0].nextCookie, 1U);
    EXPECT_EQ(listing.entries[1].name, "..");
    EXPECT_EQ(listing.entries[1].nextCookie, 2U);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("readdir /a"));
}

TEST_F(Enumeration, packsTheHelpersEntriesInItsOrderWithTheCookieOfTheNext) {
    const Listing listing = volume_->enumerateDirectory(folder_, {.cookie = 2, .verifier = 1});
    EXPECT_EQ(listing.verifier, 1U);
    ASSERT_EQ(listing.entries.size(), 3U);
    const char* names[] = {"b", "c", "d"};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(listing.entries[i].name, names[i]);
        EXPECT_EQ(listing.entries[i].nextCookie, i + 3);
    }
    EXPECT_EQ(listing.entries[0].type, fskit::FSItemType::directory);
    EXPECT_EQ(listing.entries[0].itemID, idOfAB);
    EXPECT_EQ(listing.entries[1].type, fskit::FSItemType::file);
}

TEST_F(Enumeration, neitherSortsNorFiltersNorMergesEntries) {
    helper_.on("readdir", ScriptedAnswer::success(R"([{"name":"z"},{"name":"."},{"name":"z"},{"name":""}])"));
    const Listing listing = volume_->enumerateDirectory(folder_, {.cookie = 2});
    ASSERT_EQ(listing.entries.size(), 4U);
    EXPECT_EQ(listing.entries[0].name, "z");
    EXPECT_EQ(listing.entries[1].name, ".");
    EXPECT_EQ(listing.entries[2].name, "z");
    EXPECT_EQ(listing.entries[3].name, "");
}

TEST_F(Enumeration, endsWithoutErrorWhereThePackerRefuses) {
    const Listing listing = volume_->enumerateDirectory(folder_, {.capacity = 3});
    EXPECT_EQ(listing.error, success);
    EXPECT_EQ(listing.verifier, 1U);
    ASSERT_EQ(listing.entries.size(), 3U);
    EXPECT_EQ(listing.entries.back().nextCookie, 3U);
}

TEST_F(Enumeration, offersNothingMoreWhereverThePackerRefuses) {
    for (const bool withAttributes : {false, true})
        for (std::size_t capacity = 0; capacity < 6; ++capacity) {
            const Listing listing =
                volume_->enumerateDirectory(folder_, {.withAttributes = withAttributes, .capacity = capacity});
            EXPECT_EQ(listing.error, success);
            EXPECT_EQ(listing.entries.size(), std::min<std::size_t>(capacity, 5)) << capacity;
        }
}

TEST_F(Enumeration, resumesWithTheRefusedEntryFromANewListing) {
    const Listing first = volume_->enumerateDirectory(folder_, {.capacity = 3});
    const Listing second =
        volume_->enumerateDirectory(folder_, {.cookie = first.entries.back().nextCookie, .verifier = 1});
    ASSERT_EQ(second.entries.size(), 2U);
    EXPECT_EQ(second.entries[0].name, "c");
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("readdir /a", "readdir /a"));
}

TEST_F(Enumeration, fromTheEndOrBeyondPacksNothing) {
    for (const std::uint64_t cookie : {std::uint64_t{5}, std::uint64_t{6}, std::uint64_t{9223372036854775807}}) {
        const Listing listing = volume_->enumerateDirectory(folder_, {.cookie = cookie});
        EXPECT_EQ(listing.error, success);
        EXPECT_EQ(listing.verifier, 1U);
        EXPECT_THAT(listing.entries, IsEmpty());
    }
}

TEST_F(Enumeration, dotsAreDirectoriesWithTheIdentifiersOfTheirPaths) {
    const Listing listing = volume_->enumerateDirectory(directory("/a/b"), {.capacity = 2});
    EXPECT_EQ(listing.entries[0].type, fskit::FSItemType::directory);
    EXPECT_EQ(listing.entries[0].itemID, idOfAB);
    EXPECT_EQ(listing.entries[1].type, fskit::FSItemType::directory);
    EXPECT_EQ(listing.entries[1].itemID, idOfA);
}

TEST_F(Enumeration, ofTheRootHasTheRootsIdentifierForBothDots) {
    const Listing listing = volume_->enumerateDirectory(root(), {.capacity = 2});
    EXPECT_EQ(listing.entries[0].itemID, rootID);
    EXPECT_EQ(listing.entries[1].itemID, rootID);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("readdir /"));
}

TEST_F(Enumeration, theDotCarriesTheIdentifierOfTheItemItself) {
    // An item that ".." gave has the root's identifier whatever its path.
    const Item parent = volume_->lookupItem("..", directory("/a/b")).item;
    EXPECT_EQ(volume_->enumerateDirectory(parent, {}).entries[0].itemID, rootID);
}

TEST_F(Enumeration, packsNoAttributesUnlessAsked) {
    for (const PackedEntry& entry : volume_->enumerateDirectory(folder_, {}).entries)
        EXPECT_FALSE(entry.attributes);
}

TEST_F(Enumeration, withAttributesPacksAFullRecordForEachEntry) {
    const Listing listing = volume_->enumerateDirectory(folder_, {.withAttributes = true});
    ASSERT_EQ(listing.entries.size(), 5U);
    for (const PackedEntry& entry : listing.entries)
        ASSERT_TRUE(entry.attributes);
    const fskit::FSItemAttributes& c = *listing.entries[3].attributes;
    EXPECT_EQ(c.type(), fskit::FSItemType::file);
    EXPECT_EQ(c.size(), 5000U);
    EXPECT_EQ(c.allocSize(), 8192U);
    EXPECT_EQ(static_cast<std::uint64_t>(c.parentID()), idOfA);
    EXPECT_EQ(static_cast<std::uint64_t>(c.fileID()), listing.entries[3].itemID);
    EXPECT_EQ(c.uid(), getuid());
    EXPECT_EQ(c.gid(), getgid());
    expectAllTimes(c, {7, 500'000'000});
    EXPECT_EQ(listing.entries[4].attributes->size(), 0U); // the helper said -3
}

TEST_F(Enumeration, givesEachEntryTheParentOfItsOwnPath) {
    constexpr std::uint64_t parentOfRoot = 1;
    const std::pair<const char*, std::uint64_t> parents[] = {{"/a/x", idOfA},     {"/x", rootID},   {"/a/b/y", idOfAB},
                                                             {"//a//z", idOfA},   {"/a/x2", idOfA}, {"/a/b/", idOfA},
                                                             {"/", parentOfRoot}, {"bare", rootID}, {"", rootID},
                                                             {"/a/b/c", idOfAB},  {"/a/x3", idOfA}};
    std::string result;
    for (const auto& [path, parent] : parents)
        result.append(result.empty() ? "[" : ",").append(R"({"path":")").append(path).append("\"}");
    helper_.on("readdir", ScriptedAnswer::success(result + "]"));
    const Listing listing = volume_->enumerateDirectory(folder_, {.cookie = 2, .withAttributes = true});
    ASSERT_EQ(listing.entries.size(), std::size(parents));
    for (std::size_t i = 0; i < std::size(parents); ++i) {
        const fskit::FSItemAttributes& entry = *listing.entries[i].attributes;
        EXPECT_EQ(static_cast<std::uint64_t>(entry.parentID()), parents[i].second) << parents[i].first;
        EXPECT_EQ(static_cast<std::uint64_t>(entry.fileID()), listing.entries[i].itemID) << parents[i].first;
    }
}

// The parent of an entry is remembered for the next one: one without a slash, or with one at its end, is of no use to
// it.
TEST_F(Enumeration, givesAnEntryWithAnOddPathItsParentWhateverItStandsBeside) {
    const auto parentsOf = [&](std::vector<std::string> paths) {
        std::string result;
        for (const std::string& path : paths)
            result.append(result.empty() ? "[" : ",").append(R"({"path":")").append(path).append("\"}");
        helper_.on("readdir", ScriptedAnswer::success(result + "]"));
        const Listing listing = volume_->enumerateDirectory(folder_, {.cookie = 2, .withAttributes = true});
        std::vector<std::uint64_t> parents;
        for (const PackedEntry& entry : listing.entries)
            parents.push_back(static_cast<std::uint64_t>(entry.attributes->parentID()));
        return parents;
    };
    EXPECT_THAT(parentsOf({"bare"}), ElementsAre(rootID));
    EXPECT_THAT(parentsOf({"/a/", "/a/b"}), ElementsAre(rootID, idOfA));
    EXPECT_THAT(parentsOf({"/a/b", "/a/"}), ElementsAre(idOfA, rootID));
}

TEST_F(Enumeration, theDotReportsWhatTheItemKnowsAndAsksNoFreshFacts) {
    helper_.addStat("/a", true, 1, "1999-01-01T00:00:00.000Z");
    const Listing listing = volume_->enumerateDirectory(folder_, {.withAttributes = true});
    const fskit::FSItemAttributes& dot = *listing.entries[0].attributes;
    EXPECT_EQ(dot.size(), 77U);
    expectAllTimes(dot, {1714564800, 250'000'000});
    EXPECT_EQ(static_cast<std::uint64_t>(dot.fileID()), idOfA);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("readdir /a"));
}

TEST_F(Enumeration, theParentReportsAnEmptyDirectoryOfTheEpoch) {
    const Listing listing = volume_->enumerateDirectory(directory("/a/b"), {.withAttributes = true});
    const fskit::FSItemAttributes& parent = *listing.entries[1].attributes;
    EXPECT_EQ(parent.type(), fskit::FSItemType::directory);
    EXPECT_EQ(parent.size(), 0U);
    EXPECT_EQ(static_cast<std::uint64_t>(parent.fileID()), idOfA);
    EXPECT_EQ(static_cast<std::uint64_t>(parent.parentID()), rootID);
    expectAllTimes(parent, {0, 0});
}

TEST_F(Enumeration, ofAFileRepliesTheVerifierItWasGiven) {
    const Listing listing = volume_->enumerateDirectory(file("/f"), {.verifier = 42});
    EXPECT_EQ(listing.error, posix(posixErrno::ENOTDIR_));
    EXPECT_EQ(listing.verifier, 42U);
    EXPECT_THAT(listing.entries, IsEmpty());
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Enumeration, ofAForeignItemRepliesTheVerifierItWasGiven) {
    const Listing listing = volume_->enumerateDirectory(volume_->makeForeignItem(), {.verifier = 42});
    EXPECT_EQ(listing.error, posix(posixErrno::ENOTDIR_));
    EXPECT_EQ(listing.verifier, 42U);
}

TEST_F(Enumeration, repliesTheHelpersErrorWithTheVerifierItWasGiven) {
    helper_.on("readdir", ScriptedAnswer::failure("EACCES", "keep out"));
    const Listing listing = volume_->enumerateDirectory(folder_, {.verifier = 42});
    EXPECT_EQ(listing.error, posix(posixErrno::EACCES_, "keep out"));
    EXPECT_EQ(listing.verifier, 42U);
    EXPECT_THAT(listing.entries, IsEmpty());
}

TEST_F(Lookup, readingASymbolicLinkIsInvalid) {
    const NameAnswer answer = volume_->readSymbolicLink(file("/a"));
    EXPECT_EQ(answer.error, posix(posixErrno::EINVAL_));
    EXPECT_FALSE(answer.name);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lookup, reclaimingAnItemTouchesNoHandleAndTellsTheHelperNothing) {
    const Item item = file("/a");
    volume_->openItem(item, fskit::FSVolumeOpenModes::read);
    helper_.takeRequests();
    EXPECT_EQ(volume_->reclaimItem(item), success);
    EXPECT_EQ(volume_->reclaimItem(volume_->makeForeignItem()), success);
    volume_->read(item, 0, 4, 4);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("read #1 @0 +4"));
}

TEST_F(ClientlessLookup, lookupOfANameFindsNothing) {
    EXPECT_EQ(volume_->lookupItem("a", directory("/")).error, posix(posixErrno::ENOENT_));
}

TEST_F(ClientlessLookup, lookupOfTheDotsWorks) {
    const Item folder = directory("/a/b");
    EXPECT_EQ(volume_->lookupItem(".", folder).item, folder);
    EXPECT_EQ(volume_->facts(volume_->lookupItem("..", folder).item).path(), "/a");
}

TEST_F(ClientlessLookup, lookupStillChecksDirectoryAndName) {
    EXPECT_EQ(volume_->lookupItem("", directory("/")).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(volume_->lookupItem("a", file("/f")).error, posix(posixErrno::ENOTDIR_));
}

TEST_F(ClientlessLookup, attributesComeFromTheItem) {
    const auto record = volume_->getAttributes(volume_->makeItem("/a/b", false, 10, noon)).attributes;
    ASSERT_TRUE(record);
    EXPECT_EQ(record->size(), 10U);
    EXPECT_EQ(static_cast<std::uint64_t>(record->fileID()), idOfAB);
    expectAllTimes(*record, {1714564800, 250'000'000});
}

TEST_F(ClientlessLookup, listingHasOnlyTheDots) {
    const Listing listing = volume_->enumerateDirectory(directory("/a"), {.withAttributes = true});
    EXPECT_EQ(listing.error, success);
    EXPECT_EQ(listing.verifier, 1U);
    EXPECT_EQ(listing.entries.size(), 2U);
}

} // namespace
} // namespace volumesuite
