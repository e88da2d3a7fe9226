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
