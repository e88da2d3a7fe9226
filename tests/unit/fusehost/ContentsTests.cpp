#include "RoomTest.h"

namespace fusehosttests {
namespace {

class ContentsTest : public RoomTest {};

TEST_F(ContentsTest, shortAnswersAreJoinedUpToTheKnownEnd) {
    Node& file = fileNamed("a", "0123456789");
    served.mostPerRead = 4;
    EXPECT_EQ(contentOf(file, 1), "123456789");
    EXPECT_THAT(served.takeRequests(), ElementsAre("open read /a", "read /a 1+100", "read /a 5+96", "read /a 9+92"));
}

TEST_F(ContentsTest, anErrorOnTheWayIsAnErrorOfTheWhole) {
    Node& file = fileNamed("a", "0123456789");
    served.mostPerRead = 4;
    served.before = refuseOnce("read /a 4", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { contentOf(file); }), EACCES);
}

TEST_F(ContentsTest, whatIsWrittenChangesTheNodeAndIsDue) {
    Node& file = fileNamed("a", "0123");
    const std::uint64_t before = freshness.changes();
    contents.write(file, 2, bytes("abcd"));
    EXPECT_GT(file.changed, before);
    EXPECT_EQ(file.size, 6U);
    EXPECT_EQ(file.safety, fusehost::Safety::due);
    contents.write(file, 0, bytes("x"));
    EXPECT_EQ(file.size, 6U) << "no shorter than it was";
    EXPECT_EQ(served.bytes("/a"), "x1abcd");
}

TEST_F(ContentsTest, whatIsWrittenReplacesWhatWasReadAhead) {
    Node& file = fileNamed("a", "0123456789");
    handles.open(file, FSVolumeOpenModes::readWrite);
    std::byte block[3];
    handles.readAhead(file, 4, sizeof block);
    contents.write(file, 4, bytes("x"));
    EXPECT_EQ(handles.takeReadAhead(file, 4, block), 0U);
}

TEST_F(ContentsTest, growsByZeros) {
    Node& file = fileNamed("a", "01");
    contents.grow(file, 5);
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(served.bytes("/a"), std::string("01\0\0\0", 5));
}

TEST_F(ContentsTest, emptyingAFileThatNobodyHasOpenForgetsAnErrorOfWhatItHeld) {
    Node& file = fileNamed("a", "01");
    file.writers = 1;
    file.deferredError.keep(EIO);
    contents.makeEmpty(file);
    EXPECT_EQ(file.deferredError.take(), EIO) << "whoever writes it is still to be told";
    file.writers = 0;
    file.deferredError.keep(EIO);
    contents.makeEmpty(file);
    EXPECT_EQ(file.deferredError.take(), 0);
    EXPECT_EQ(file.safety, fusehost::Safety::told);
}

TEST_F(ContentsTest, isCutIntoWhatOneRequestCarries) {
    const std::string text(5000, 'x');
    EXPECT_EQ(contents.piece(bytes(text), 0).size(), 4096U);
    EXPECT_EQ(contents.piece(bytes(text), 4096).size(), 904U);
}

} // namespace
} // namespace fusehosttests
