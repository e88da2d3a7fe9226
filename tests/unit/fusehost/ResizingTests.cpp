#include "RoomTest.h"

#include "hosts/fuse/tree/AttributeChanges.h"
#include "hosts/fuse/tree/Resizing.h"
#include "hosts/fuse/tree/Shrinking.h"

#include <limits>

namespace fusehosttests {
namespace {

class ResizingTest : public RoomTest {
protected:
    fusehost::NewItems newItems{calls, nodes};
    fusehost::HeadCopies copies{changes, nodes, newItems, hiddenNames};
    fusehost::Shrinking shrinking{nodes, contents, durability, copies};
    fusehost::Resizing resizing{nodes, handles, attributes, contents, shrinking};
    fusehost::AttributeChanges attributeChanges{changes, nodes, attributes, resizing, false};
};

TEST_F(ResizingTest, aDirectoryHasNoSizeAndNoFileIsLargerThanAFileCanBe) {
    served.putDirectory("/d");
    EXPECT_EQ(errnoOf([&] { resizing.changeSize(found("d"), 1); }), EISDIR);
    constexpr std::uint64_t tooLarge = std::uint64_t{1} << 63U;
    EXPECT_EQ(errnoOf([&] { resizing.changeSize(fileNamed("a", ""), tooLarge); }), EFBIG);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(ResizingTest, theSizeThatAFileHasIsNoChange) {
    Node& file = fileNamed("a", "0123");
    EXPECT_EQ(resizing.changeSize(file, 4).st_size, 4);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
}

TEST_F(ResizingTest, aFileThatGrewBehindTheMountIsCutByWhatItIsNow) {
    Node& file = fileNamed("a", "01");
    served.append("/a", "23456789");
    EXPECT_EQ(resizing.changeSize(file, 4).st_size, 4);
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_THAT(served.names("/"), ElementsAre("a")) << "the copy of its head is gone";
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(ResizingTest, theHeadIsSafeBesideTheFileBeforeThatIsEmptied) {
    Node& file = fileNamed("a", "0123456789");
    std::vector<std::string> safeBefore;
    served.before = [&](const std::string& request) {
        if (request == "open write,create,truncate /a")
            safeBefore = served.takeRequests();
    };
    shrinking.shrink(file, 4);
    EXPECT_THAT(safeBefore, testing::Contains(testing::AllOf(testing::StartsWith("flush /.kemvi-hidden-"),
                                                             testing::EndsWith("-head-of-a"))));
}

TEST_F(ResizingTest, theCopyTakesThePlaceOfAFileThatCannotBeWrittenAnyMore) {
    Node& file = fileNamed("a", "0123456789");
    served.before = refuseAlways("open write,create /a", posixErrno::EACCES_);
    shrinking.shrink(file, 4);
    served.before = {};
    EXPECT_EQ(served.bytes("/a"), "0123");
    EXPECT_THAT(served.names("/"), ElementsAre("a"));
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr("a copy with mode 0600 took its place")));
}

TEST_F(ResizingTest, theNameOfACopyEndsWithAWholeCharacter) {
    std::string name;
    while (name.size() < 254)
        name += "\xC3\xA9"; // two bytes
    Node& copy = copies.make(fileNamed(name, ""));
    EXPECT_LE(copy.name.size(), 255U);
    EXPECT_GE(copy.name.size(), 254U);
    EXPECT_EQ(copy.name.back(), '\xA9');
    EXPECT_EQ(served.mode("/" + copy.name), 0600U);
    copies.drop(copy);
    EXPECT_EQ(served.names("/").size(), 1U);
}

// Other attributes

TEST_F(ResizingTest, noOwnerIsChangedUnlessTheMountIsQuietAboutIt) {
    Node& file = fileNamed("a", "");
    fusehost::AttributeChange change;
    change.uid = 1000; // as it is
    EXPECT_EQ(errnoOf([&] { attributeChanges.change(file, change); }), 0);
    change.uid = 4711;
    EXPECT_EQ(errnoOf([&] { attributeChanges.change(file, change); }), EPERM);
    fusehost::AttributeChanges quiet(changes, nodes, attributes, resizing, true);
    EXPECT_EQ(errnoOf([&] { quiet.change(file, change); }), 0);
}

TEST_F(ResizingTest, aChangeThatChangesNothingIsAnsweredByTheOneJustBefore) {
    Node& file = fileNamed("a", "");
    fusehost::AttributeChange mode;
    mode.mode = 06444;
    attributeChanges.change(file, mode);
    EXPECT_EQ(served.mode("/a"), 0444U) << "no helper gets bits that let a program run as its owner";
    EXPECT_TRUE(file.isWriteProtected);
    served.takeRequests();
    fusehost::AttributeChange owner;
    owner.uid = 1000;
    attributeChanges.change(file, owner);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    now += fusehost::briefTrust;
    attributeChanges.change(file, owner);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
}

} // namespace
} // namespace fusehosttests
