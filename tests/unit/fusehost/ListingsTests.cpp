#include "RoomTest.h"

#include "hosts/fuse/tree/Listings.h"

namespace fusehosttests {
namespace {

using fusehost::OpenDirectoryID;

class ListingsTest : public RoomTest {
protected:
    OpenDirectoryID listed() {
        const OpenDirectoryID directory = listings.open(root());
        listings.start(directory);
        return directory;
    }

    /// The third entry, which is the first beside "." and "..".
    const fusehost::ListedEntry& first(OpenDirectoryID directory) { return *listings.entry(directory, 2); }

    fusehost::Listings listings{calls, nodes, hidden, attributes, freshness};
};

TEST_F(ListingsTest, handsOutANodeWithWhatTheListingSays) {
    served.put("/a", "12345");
    const OpenDirectoryID directory = listed();
    EXPECT_EQ(listings.count(directory), 3U);
    const auto entry = listings.node(directory, first(directory));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->attributes.st_size, 5);
    EXPECT_EQ(nodes.at(entry->node).lookups, 1U);
    EXPECT_THAT(served.takeRequests(), ElementsAre("readdir /"));
}

TEST_F(ListingsTest, aNameThatIsLookedUpIsToldOnceWithoutAQuestion) {
    served.put("/a", "12345");
    listings.release(listed());
    served.takeRequests();
    const auto entry = listings.told(root(), "a", Seconds(10));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->attributes.st_size, 5);
    EXPECT_EQ(nodes.at(entry->node).lookups, 1U);
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10))) << "a kernel that asks again doubts it";
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(ListingsTest, aNameThatTheKernelWasGivenWithTheListingIsNotToldAgain) {
    served.put("/a", "1");
    const OpenDirectoryID directory = listed();
    EXPECT_TRUE(listings.node(directory, first(directory)));
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10)));
}

TEST_F(ListingsTest, nothingIsToldOfANameThatWasNotListed) {
    served.put("/a", "1");
    listed();
    EXPECT_FALSE(listings.told(root(), "A", Seconds(10)));
    EXPECT_FALSE(listings.told(root(), ".", Seconds(10)));
    EXPECT_FALSE(listings.told(fileNamed("d", ""), "a", Seconds(10))) << "it is another directory's";
}

TEST_F(ListingsTest, nothingIsToldThatIsOlderThanNamesAreTrusted) {
    served.put("/a", "1");
    listed();
    EXPECT_FALSE(listings.told(root(), "a", Seconds(0)));
}

TEST_F(ListingsTest, nothingIsToldAfterAChangeOfNamesOrWhenSomethingHasVanished) {
    served.put("/a", "1");
    Node& vanishing = fileNamed("b", "");
    listed();
    freshness.noteChange(root());
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10)));
    listed();
    nodes.dropVanished(vanishing);
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10))) << "the listing was taken before that was found";
    listed();
    EXPECT_TRUE(listings.told(root(), "a", Seconds(10)));
}

TEST_F(ListingsTest, theLatestListingIsWhatTells) {
    served.put("/a", "1");
    listed();
    served.put("/a", "123");
    listed();
    const auto entry = listings.told(root(), "a", Seconds(10));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->attributes.st_size, 3);
}

TEST_F(ListingsTest, namesInAnyOrderAreToldAsSoonAsItPaysToLookForThem) {
    constexpr int count = 600;
    for (int number = 0; number < count; ++number)
        served.put("/" + std::to_string(1000 + number), "");
    listed();
    int untold = 0;
    for (int number = count - 1; number >= 0; --number)
        untold += listings.told(root(), std::to_string(1000 + number), Seconds(10)) ? 0 : 1;
    EXPECT_EQ(untold, 4) << "of 602 entries, for each 128";
    listed();
    for (int number = 0; number < count; ++number)
        EXPECT_TRUE(listings.told(root(), std::to_string(1000 + number), Seconds(10))) << number;
}

TEST_F(ListingsTest, aListingThatIsTooLongIsNotKept) {
    for (int number = 0; number < 16384; ++number)
        served.put("/" + std::to_string(number), "");
    listed();
    EXPECT_FALSE(listings.told(root(), "0", Seconds(10)));
}

TEST_F(ListingsTest, tellsNothingOfWhatHasChangedSince) {
    Node& file = fileNamed("a", "1");
    const OpenDirectoryID directory = listed();
    EXPECT_TRUE(listings.node(directory, first(directory)));
    freshness.noteChange(file);
    EXPECT_FALSE(listings.node(directory, first(directory)));
}

TEST_F(ListingsTest, tellsNothingOfAnUnknownNameInADirectoryThatHasChangedSince) {
    served.put("/a", "1");
    const OpenDirectoryID directory = listed();
    freshness.noteChange(root());
    EXPECT_FALSE(listings.node(directory, first(directory)));
}

TEST_F(ListingsTest, showsNoHiddenFileThoughItWasListed) {
    Node& file = fileNamed("a", "1");
    hidden.hide(fusehost::NameChange(changes, root()), file);
    const OpenDirectoryID directory = listed();
    EXPECT_EQ(listings.count(directory), 3U);
    EXPECT_EQ(listings.entry(directory, 2), nullptr);
}

TEST_F(ListingsTest, aDirectoryIsEmptyWithHiddenFilesAlone) {
    Node& file = fileNamed("a", "");
    EXPECT_EQ(errnoOf([&] { listings.refuseIfNotEmpty(&root(), root().item); }), ENOTEMPTY);
    hidden.hide(fusehost::NameChange(changes, root()), file);
    EXPECT_EQ(errnoOf([&] { listings.refuseIfNotEmpty(&root(), root().item); }), 0);
    EXPECT_EQ(errnoOf([&] { listings.refuseIfNotEmpty(nullptr, root().item); }), ENOTEMPTY)
        << "of an unknown directory it is not known what is hidden";
}

TEST_F(ListingsTest, whatIsNotOpenIsEBADF) {
    const OpenDirectoryID directory = listed();
    listings.release(directory);
    EXPECT_EQ(errnoOf([&] { listings.count(directory); }), EBADF);
    EXPECT_EQ(errnoOf([&] { listings.start(directory); }), EBADF);
}

} // namespace
} // namespace fusehosttests
