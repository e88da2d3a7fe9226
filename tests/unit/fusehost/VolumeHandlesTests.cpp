#include "RoomTest.h"

#include <atomic>
#include <functional>
#include <future>
#include <thread>

namespace fusehosttests {
namespace {

class VolumeHandlesTest : public RoomTest {
protected:
    /// A reader has had the file open, and nobody has it open any more.
    void readAndClose(Node& node) {
        handles.open(node, FSVolumeOpenModes::read);
        handles.closeWhenIdle(node);
        served.takeRequests();
    }
};

TEST_F(VolumeHandlesTest, ofTwoItemsWithOneIdentifierOneIsOpenAtATime) {
    volume->identifiers = {{"/a", 4711}, {"/b", 4711}};
    Node& a = fileNamed("a", "a");
    Node& b = fileNamed("b", "b");
    handles.open(a, FSVolumeOpenModes::readWrite);
    served.takeRequests();
    handles.open(b, FSVolumeOpenModes::read);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a", "release /a", "open read /b"));
    handles.closeUnused(a);
    EXPECT_THAT(served.takeRequests(), IsEmpty()) << "it would have closed the other's";
    EXPECT_EQ(handles.openItems(), 1U);
    handles.closeUnused(b);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /b"));
    EXPECT_EQ(handles.openItems(), 0U);
}

TEST_F(VolumeHandlesTest, whatStaysOpenToBeReadStaysInTheAccount) {
    volume->identifiers = {{"/a", 4711}, {"/b", 4711}};
    Node& a = fileNamed("a", "a");
    Node& b = fileNamed("b", "b");
    handles.open(a, FSVolumeOpenModes::readWrite);
    a.readers = 1;
    handles.closeUnused(a);
    served.takeRequests();
    handles.open(b, FSVolumeOpenModes::read);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a", "open read /b"));
    a.readers = 0;
}

TEST_F(VolumeHandlesTest, whatIsOpenToBeReadAloneCannotBeWritten) {
    Node& node = fileNamed("a", "a");
    handles.open(node, FSVolumeOpenModes::read);
    EXPECT_FALSE(handles.mayBeWritten(node));
    handles.open(node, FSVolumeOpenModes::write);
    EXPECT_TRUE(handles.mayBeWritten(node));
    handles.closeUnused(node);
}

TEST_F(VolumeHandlesTest, anErrorOfClosingQuietlyIsKeptForTheCloseOfAWriterAlone) {
    Node& reader = fileNamed("reader", "r");
    Node& writer = fileNamed("writer", "w");
    handles.open(reader, FSVolumeOpenModes::read);
    handles.open(writer, FSVolumeOpenModes::write);
    served.before = refuseAlways("release", posixErrno::ENOSPC_);
    handles.closeQuietly(reader);
    handles.closeQuietly(writer);
    EXPECT_EQ(reader.deferredError.take(), 0);
    EXPECT_EQ(writer.deferredError.take(), ENOSPC);
}

TEST_F(VolumeHandlesTest, whatTheVolumeClosesByItselfGivesWayFirst) {
    volume->identifiers = {{"/a", 4711}, {"/b", 4711}};
    Node& a = fileNamed("a", "a");
    Node& b = fileNamed("b", "b");
    a.writers = a.unflushedWriters = 1;
    for (const auto& close : {std::function<void()>([&] { handles.makeEmpty(b); }), std::function<void()>([&] {
                                  handles.rename(b.item, root().item, "b", root().item, "b");
                              }),
                              std::function<void()>([&] { handles.remove(b.item, root().item, "b"); })}) {
        handles.write(a, 0, bytes("A"));
        served.before = refuseOnce("release /a", posixErrno::EDQUOT_);
        close();
        EXPECT_EQ(a.deferredError.take(), EDQUOT) << "the error is that of the file which gave way";
    }
}

TEST_F(VolumeHandlesTest, whatNobodyUsesIsClosedInTheOrderInWhichItWasLeft) {
    Node& a = fileNamed("a", "a");
    Node& b = fileNamed("b", "b");
    readAndClose(a);
    readAndClose(b);
    EXPECT_TRUE(handles.isUnused(a));
    handles.doNext();
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /a"));
    EXPECT_FALSE(handles.isUnused(a));
    EXPECT_TRUE(handles.isPending());
    handles.closeAllUnused();
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /b"));
    EXPECT_FALSE(handles.isPending());
}

TEST_F(VolumeHandlesTest, closesOfANodeWhatNoOpenerNeeds) {
    Node& node = fileNamed("a", "a");
    handles.open(node, FSVolumeOpenModes::readWrite);
    served.takeRequests();
    node.readers = node.writers = node.unflushedWriters = 1;
    handles.closeUnused(node);
    EXPECT_EQ(served.openHandles(), 2U);
    EXPECT_TRUE(handles.mayBeWritten(node));
    node.unflushedWriters = 0;
    handles.closeUnused(node);
    EXPECT_EQ(served.openHandles(), 1U);
    EXPECT_FALSE(handles.mayBeWritten(node));
    node.readers = 0;
    handles.closeUnused(node);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(VolumeHandlesTest, anErrorOfClosingForAMoveIsKeptForAWriterAlone) {
    Node& reader = fileNamed("reader", "r");
    Node& writer = fileNamed("writer", "w");
    reader.readers = writer.writers = 1;
    handles.open(reader, FSVolumeOpenModes::read);
    handles.open(writer, FSVolumeOpenModes::write);
    served.before = refuseAlways("release", posixErrno::ENOSPC_);
    handles.closeForMove(root());
    EXPECT_EQ(reader.deferredError.take(), 0);
    EXPECT_EQ(writer.deferredError.take(), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(VolumeHandlesTest, closesOtherWritersButThoseThatCouldNotBeHadAgain) {
    Node& meant = fileNamed("meant", "");
    Node& other = fileNamed("other", "");
    Node& guarded = fileNamed("guarded", "");
    for (Node* node : {&meant, &other, &guarded}) {
        node->writers = node->unflushedWriters = 1;
        handles.write(*node, 0, bytes("x"));
    }
    guarded.isWriteProtected = true;
    served.takeRequests();
    handles.closeOtherWriters(meant);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release /other"));
    EXPECT_THAT(handles.otherWriters(meant), ElementsAre(&guarded));
    EXPECT_TRUE(handles.mayBeWritten(meant));
}

TEST_F(VolumeHandlesTest, ofTwoNamesForOnePathClosingOneForgetsWhatWasReadAheadOfTheOther) {
    served.put("/kept", "0123456789");
    served.put("/shown", "");
    served.oddPaths = {{"/shown", "/kept"}};
    Node& shown = found("shown");
    Node& kept = found("kept");
    ASSERT_TRUE(shown.item->isSame(*kept.item));
    handles.open(shown, FSVolumeOpenModes::read);
    std::byte block[2];
    handles.readAhead(shown, 4, sizeof block);
    handles.closeUnused(kept);
    EXPECT_EQ(handles.takeReadAhead(shown, 4, block), 0U) << "it was read through the handle that was closed";
}

TEST_F(VolumeHandlesTest, whatWasReadAheadIsTakenOnce) {
    Node& node = fileNamed("a", "0123456789");
    handles.open(node, FSVolumeOpenModes::read);
    std::byte block[3];
    handles.readAhead(node, 4, sizeof block);
    EXPECT_EQ(handles.takeReadAhead(node, 4, block), 3U);
    EXPECT_EQ(block[0], std::byte{'4'});
    EXPECT_EQ(handles.takeReadAhead(node, 4, block), 0U);
    handles.closeUnused(node);
}

TEST_F(VolumeHandlesTest, whatWasReadAheadIsOfOneFileAndOnePlace) {
    Node& a = fileNamed("a", "0123456789");
    Node& b = fileNamed("b", "abcdefghij");
    handles.open(a, FSVolumeOpenModes::read);
    std::byte block[3];
    handles.readAhead(a, 4, sizeof block);
    EXPECT_EQ(handles.takeReadAhead(b, 4, block), 0U);
    EXPECT_EQ(handles.takeReadAhead(a, 5, block), 0U);
    EXPECT_EQ(handles.takeReadAhead(a, 4, block), 3U);
    handles.closeUnused(a);
}

TEST_F(VolumeHandlesTest, whatIsMovedForgetsWhatWasReadAheadOfItOpenOrNot) {
    Node& node = fileNamed("a", "0123456789");
    std::byte block[3];
    for (const unsigned readers : {0U, 1U}) {
        node.readers = readers;
        handles.open(node, FSVolumeOpenModes::read);
        handles.readAhead(node, 4, sizeof block);
        handles.closeForMove(node);
        EXPECT_EQ(handles.takeReadAhead(node, 4, block), 0U);
    }
    node.readers = 0;
    handles.closeUnused(node);
}

TEST_F(VolumeHandlesTest, dropsWhatIsReadAheadWhenItHasBeenRead) {
    Node& node = fileNamed("a", "0123456789");
    handles.open(node, FSVolumeOpenModes::read);
    std::promise<void> entered;
    std::atomic<bool> isInside{false};
    std::atomic<bool> mayLeave{false};
    volume->onRead = [&] {
        isInside = true;
        entered.set_value();
        while (!mayLeave)
            std::this_thread::yield();
        for (int turn = 0; turn < 10'000; ++turn) // whoever does not wait is through before
            std::this_thread::yield();
        isInside = false;
    };
    std::byte block[2];
    handles.readAhead(node, 4, sizeof block);
    entered.get_future().wait();
    EXPECT_TRUE(handles.isUnderWay());
    mayLeave = true;
    handles.dropReadAhead(node);
    EXPECT_FALSE(handles.isUnderWay());
    EXPECT_FALSE(isInside) << "whoever drops it goes on to close what is read from";
    volume->onRead = {};
    EXPECT_EQ(handles.takeReadAhead(node, 4, block), 0U);
    handles.closeUnused(node);
}

} // namespace
} // namespace fusehosttests
