#include "hosts/fuse/tree/OpenItems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fskit::FSItemID;
using fusehost::Node;
using fusehost::OpenItems;
using testing::ElementsAre;
using testing::IsEmpty;

struct TestItem final : fskit::FSItem {
    TestItem(std::string itsPath, FSItemID itsID) : path(std::move(itsPath)), id(itsID) {}

    FSItemID identifier() const override { return id; }

    bool isSame(const FSItem& other) const override { return dynamic_cast<const TestItem&>(other).path == path; }

    const std::string path;
    const FSItemID id;
};

Node nodeOf(fusehost::NodeID id, const std::string& path, FSItemID identifier) {
    Node node;
    node.id = id;
    node.item = std::make_shared<TestItem>(path, identifier);
    return node;
}

class OpenItemsTest : public testing::Test {
protected:
    const Node a = nodeOf(11, "/a", FSItemID{70});
    const Node sameAsA = nodeOf(12, "/a", FSItemID{70});
    const Node rival = nodeOf(13, "/r", FSItemID{70});
    const Node b = nodeOf(14, "/b", FSItemID{80});
    OpenItems open;
};

TEST_F(OpenItemsTest, ofItemsWithOneIdentifierTheOneThatIsOpenIsTheOthersRival) {
    EXPECT_EQ(open.rivalOf(*a.item), nullptr);
    open.enter(a);
    EXPECT_EQ(open.rivalOf(*a.item), nullptr);
    EXPECT_EQ(open.rivalOf(*sameAsA.item), nullptr);
    EXPECT_EQ(open.rivalOf(*b.item), nullptr);
    EXPECT_EQ(open.rivalOf(*rival.item), a.item);
    open.leave(*rival.item);
    EXPECT_EQ(open.size(), 1U) << "what is not open cannot close another";
    open.leave(*sameAsA.item);
    EXPECT_EQ(open.size(), 0U);
}

TEST_F(OpenItemsTest, itemsWithoutAnIdentifierAreNobodysRivalsAndKeptApart) {
    const Node one = nodeOf(21, "/1", FSItemID::invalid);
    const Node two = nodeOf(22, "/2", FSItemID::invalid);
    open.enterWriting(one);
    EXPECT_EQ(open.rivalOf(*two.item), nullptr);
    open.enter(two);
    EXPECT_EQ(open.size(), 2U);
    EXPECT_TRUE(open.mayBeWritten(*one.item));
    EXPECT_FALSE(open.mayBeWritten(*two.item));
}

TEST_F(OpenItemsTest, isOpenForWhoeverWritesItOrElseForTheLastThatUsedIt) {
    EXPECT_EQ(open.nodeOf(*a.item), 0U);
    open.enter(a);
    open.enter(sameAsA);
    EXPECT_EQ(open.nodeOf(*a.item), sameAsA.id);
    open.enterWriting(a);
    open.enter(sameAsA);
    EXPECT_EQ(open.nodeOf(*a.item), a.id);
    EXPECT_EQ(open.size(), 1U);
}

TEST_F(OpenItemsTest, tellsTheWritersOfOtherItems) {
    open.enterWriting(a);
    open.enter(b);
    EXPECT_THAT(open.writersBeside(b.item.get()), ElementsAre(a.id));
    EXPECT_THAT(open.writersBeside(sameAsA.item.get()), IsEmpty());
    EXPECT_THAT(open.writersBeside(nullptr), ElementsAre(a.id));
    open.leaveWriting(*a.item);
    EXPECT_THAT(open.writersBeside(nullptr), IsEmpty());
    EXPECT_EQ(open.size(), 2U) << "it may still be open for reading";
}

TEST_F(OpenItemsTest, givesWhatNobodyUsesInTheOrderInWhichItCame) {
    open.addUnused(a.item);
    open.addUnused(b.item);
    open.addUnused(rival.item);
    EXPECT_TRUE(open.isUnused(*sameAsA.item));
    open.removeUnused(*b.item);
    EXPECT_EQ(open.unused(), 2U);
    EXPECT_EQ(open.takeUnused(), a.item);
    EXPECT_EQ(open.takeUnused(), rival.item);
    EXPECT_EQ(open.takeUnused(), nullptr);
}

} // namespace
