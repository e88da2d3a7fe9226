#include "RoomTest.h"

namespace fusehosttests {
namespace {

class NodesTest : public RoomTest {};

TEST_F(NodesTest, aNodeIsFoundByItsNumberOrIsStale) {
    Node& file = fileNamed("a", "");
    EXPECT_EQ(&nodes.at(file.id), &file);
    EXPECT_EQ(errnoOf([&] { nodes.at(4711); }), ESTALE);
    EXPECT_EQ(errnoOf([&] { nodes.directoryAt(file.id); }), ENOTDIR);
    EXPECT_EQ(&nodes.directoryAt(rootNodeID), &root());
}

TEST_F(NodesTest, anItemIsMadeOfTheNameWhereThatIsThePathThatWasReported) {
    Node& plain = fileNamed("plain", "");
    served.put("/odd", "");
    served.put("/elsewhere", "");
    served.oddPaths = {{"/odd", "/elsewhere"}};
    Node& odd = found("odd");
    plain.item.reset();
    odd.item.reset();
    nodes.itemOf(plain);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    nodes.itemOf(odd);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /odd"));
    nodes.itemOf(odd);
    EXPECT_THAT(served.takeRequests(), IsEmpty()) << "once it has one";
}

TEST_F(NodesTest, whatHasLostItsNameHasNoItem) {
    Node& file = fileNamed("a", "");
    nodes.drop(file);
    EXPECT_EQ(errnoOf([&] { nodes.itemOf(file); }), ESTALE);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(NodesTest, aNameThatHasGoneTakesTheNodeWithItAfterWhatWasOpenIsClosed) {
    Node& file = fileNamed("a", "");
    const NodeID id = file.id;
    file.readers = 1;
    handles.open(file, FSVolumeOpenModes::read);
    served.erase("/a");
    EXPECT_EQ(errnoOf([&] { nodes.find(root(), "a"); }), ENOENT);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
    EXPECT_FALSE(file.hasName()) << "which lives on, as it is open";
    file.readers = 0;
    nodes.forget(id, 1);
    EXPECT_EQ(errnoOf([&] { nodes.at(id); }), ESTALE);
}

TEST_F(NodesTest, anotherTypeUnderTheNameIsAnotherNode) {
    Node& file = fileNamed("a", "");
    const NodeID id = file.id;
    served.erase("/a");
    served.putDirectory("/a");
    EXPECT_EQ(errnoOf([&] { nodes.lookUpAgain(file); }), ESTALE);
    EXPECT_EQ(nodes.child(root(), "a"), nullptr);
    EXPECT_NE(found("a").id, id);
}

TEST_F(NodesTest, anotherPathUnderTheNameOfAnOpenFileHasWhatIsOpenClosed) {
    Node& file = fileNamed("a", "");
    served.put("/elsewhere", "");
    file.readers = 1;
    handles.open(file, FSVolumeOpenModes::read);
    served.oddPaths = {{"/a", "/elsewhere"}};
    found("a");
    EXPECT_EQ(served.openHandles(), 0U);
    file.readers = 0;
}

TEST_F(NodesTest, aKnownNameIsResolvedWithoutAQuestion) {
    Node& file = fileNamed("a", "");
    EXPECT_EQ(nodes.resolve(root(), "a").node, &file);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    served.putDirectory("/b");
    const auto unknown = nodes.resolve(root(), "b");
    EXPECT_EQ(unknown.node, nullptr);
    EXPECT_TRUE(unknown.isDirectory);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /b"));
}

TEST_F(NodesTest, aNodeWithoutAnItemKeepsItsNumberWhenItsNameIsResolved) {
    served.put("/odd", "");
    served.put("/elsewhere", "");
    served.oddPaths = {{"/odd", "/elsewhere"}};
    Node& odd = found("odd");
    odd.item.reset();
    EXPECT_EQ(nodes.resolve(root(), "odd").node, &odd);
    EXPECT_TRUE(odd.hasName());
}

TEST_F(NodesTest, askingWhetherANameIsTakenChangesNothing) {
    Node& file = fileNamed("a", "");
    EXPECT_TRUE(nodes.isTaken(root(), "a"));
    served.erase("/a");
    EXPECT_FALSE(nodes.isTaken(root(), "a"));
    EXPECT_TRUE(file.hasName());
    served.before = refuseOnce("getattr", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { nodes.isTaken(root(), "a"); }), EACCES);
}

} // namespace
} // namespace fusehosttests
