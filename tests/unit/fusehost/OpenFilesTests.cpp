#include "RoomTest.h"

#include "hosts/fuse/tree/FileAccess.h"

namespace fusehosttests {
namespace {

class OpenFilesTest : public RoomTest {
protected:
    fusehost::FileAccess access{files, handles, contents};
};

TEST_F(OpenFilesTest, countsTheOpenersOfANode) {
    Node& node = fileNamed("a", "");
    const OpenFileID reader = files.add(node, O_RDONLY);
    const OpenFileID writer = files.add(node, O_WRONLY);
    const OpenFileID both = files.add(node, O_RDWR);
    EXPECT_EQ(node.readers, 2U);
    EXPECT_EQ(node.writers, 2U);
    EXPECT_EQ(node.unflushedWriters, 2U);
    files.flush(writer);
    files.flush(writer);
    EXPECT_EQ(node.unflushedWriters, 1U);
    files.nodeToWrite(writer);
    files.nodeToWrite(writer);
    EXPECT_EQ(node.unflushedWriters, 2U);
    for (const OpenFileID file : {reader, writer, both})
        files.release(file);
    EXPECT_FALSE(node.isOpen());
    EXPECT_EQ(node.unflushedWriters, 0U);
}

TEST_F(OpenFilesTest, aWriterReadsWithTheWritebackCache) {
    EXPECT_EQ(files.modesFor(O_WRONLY), FSVolumeOpenModes::write);
    EXPECT_EQ(fusehost::OpenFiles(nodes, handles, hidden, true).modesFor(O_WRONLY), FSVolumeOpenModes::readWrite);
}

TEST_F(OpenFilesTest, whatIsNotOpenIsEBADF) {
    const OpenFileID file = files.add(fileNamed("a", ""), O_RDWR);
    files.release(file);
    EXPECT_EQ(errnoOf([&] { files.flush(file); }), EBADF);
    EXPECT_EQ(errnoOf([&] { files.release(file); }), EBADF);
    EXPECT_EQ(errnoOf([&] { access.write(file, 0, bytes("x")); }), EBADF);
}

TEST_F(OpenFilesTest, aFlushTellsTheErrorThatWaitsToAWriterAlone) {
    Node& node = fileNamed("a", "");
    const OpenFileID reader = files.add(node, O_RDONLY);
    const OpenFileID writer = files.add(node, O_WRONLY);
    node.deferredError.keep(EDQUOT);
    EXPECT_EQ(errnoOf([&] { files.flush(reader); }), 0);
    EXPECT_EQ(errnoOf([&] { files.flush(writer); }), EDQUOT);
    EXPECT_EQ(errnoOf([&] { files.flush(writer); }), 0);
}

TEST_F(OpenFilesTest, namesEachWrittenNodeOnceInTheOrderOfTheirNumbers) {
    Node& a = fileNamed("a", "");
    Node& b = fileNamed("b", "");
    Node& gone = fileNamed("gone", "");
    for (Node* node : {&b, &a, &b, &gone, &a})
        files.add(*node, O_WRONLY);
    files.add(fileNamed("read", ""), O_RDONLY);
    gone.hidden = true;
    EXPECT_THAT(files.writtenNodes(), ElementsAre(a.id, b.id));
    gone.hidden = false;
}

TEST_F(OpenFilesTest, theLastCloseOfAHiddenFileRemovesIt) {
    Node& node = fileNamed("a", "");
    const OpenFileID one = files.add(node, O_RDONLY);
    const OpenFileID two = files.add(node, O_RDONLY);
    hidden.hide(fusehost::NameChange(changes, root()), node);
    files.release(one);
    EXPECT_EQ(served.names("/").size(), 1U);
    files.release(two);
    EXPECT_THAT(served.names("/"), IsEmpty());
}

TEST_F(OpenFilesTest, theLastCloseOfAFileThatTheKernelHasForgottenEndsItsNode) {
    Node& node = fileNamed("a", "");
    const NodeID id = node.id;
    const OpenFileID file = files.add(node, O_RDONLY);
    nodes.forget(id, 1);
    EXPECT_NE(table.find(id), nullptr);
    files.release(file);
    EXPECT_EQ(table.find(id), nullptr);
}

TEST_F(OpenFilesTest, aHiddenFileIsClosedBeforeItIsRemoved) {
    Node& node = fileNamed("a", "text");
    const OpenFileID file = files.add(node, O_RDONLY);
    hidden.hide(fusehost::NameChange(changes, root()), node);
    std::byte block[4];
    access.read(file, 0, block);
    const std::string path = "/" + node.name;
    served.takeRequests();
    files.release(file);
    EXPECT_THAT(served.takeRequests(), ElementsAre("release " + path, "unlink " + path));
    EXPECT_FALSE(handles.isPending());
}

TEST_F(OpenFilesTest, theEndRemovesHiddenFilesAndTellsErrorsThatNobodyWasTold) {
    Node& lost = fileNamed("lost", "");
    files.add(lost, O_WRONLY);
    files.add(lost, O_WRONLY);
    lost.deferredError.keep(ENOSPC);
    Node& gone = fileNamed("gone", "");
    files.add(gone, O_WRONLY);
    hidden.hide(fusehost::NameChange(changes, root()), gone);
    gone.deferredError.keep(ENOSPC);
    files.end();
    EXPECT_THAT(served.names("/"), ElementsAre("lost"));
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr("No space left on device")));
}

TEST_F(OpenFilesTest, theBlockAfterTwoInARowIsReadAhead) {
    Node& node = fileNamed("a", "0011223344");
    const OpenFileID file = files.add(node, O_RDONLY);
    std::byte block[2];
    access.read(file, 0, block);
    access.read(file, 2, block);
    EXPECT_EQ(handles.takeReadAhead(node, 4, block), 2U);
    EXPECT_EQ(block[0], std::byte{'2'});
    access.read(file, 8, block);
    EXPECT_EQ(handles.takeReadAhead(node, 10, block), 0U) << "it was not read in a row";
    files.release(file);
}

TEST_F(OpenFilesTest, pagesAreWrittenAsFarAsCanBeAndTheErrorKept) {
    Node& node = fileNamed("a", "");
    const OpenFileID file = files.add(node, O_RDWR);
    served.before = refuseOnce("write /a 0", posixErrno::ENOSPC_);
    EXPECT_EQ(errnoOf([&] { access.writePages(file, 0, bytes(std::string(4097, 'x'))); }), ENOSPC);
    EXPECT_EQ(served.bytes("/a"), std::string(4096, '\0') + "x");
    EXPECT_EQ(node.deferredError.take(), ENOSPC);
    files.release(file);
}

} // namespace
} // namespace fusehosttests
