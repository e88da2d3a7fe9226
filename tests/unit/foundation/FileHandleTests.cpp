#include "foundation/FileHandle.h"
#include "foundation/Pipe.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using foundation::ByteBuffer;
using foundation::FileHandle;
using foundation::Pipe;

std::optional<std::string> nextLine(FileHandle& handle) {
    ByteBuffer line;
    return handle.readLine(line) ? std::optional(std::string(line.view())) : std::nullopt;
}

std::string patternOf(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>('a' + i * 31 % 26);
    return text;
}

class FileHandleTest : public testing::Test {
protected:
    FileHandleTest() { std::signal(SIGPIPE, SIG_IGN); }

    FileHandle& reading() { return pipe_.fileHandleForReading(); }

    FileHandle& writing() { return pipe_.fileHandleForWriting(); }

    void endWith(std::string_view text) {
        ASSERT_TRUE(writing().write(text));
        writing().close();
    }

    Pipe pipe_;
};

using PipeTest = FileHandleTest;

TEST_F(FileHandleTest, readsALineWithoutItsLineFeed) {
    endWith("hello\n");
    EXPECT_EQ(nextLine(reading()), "hello");
    EXPECT_EQ(nextLine(reading()), std::nullopt);
}

TEST_F(FileHandleTest, keepsACarriageReturnBeforeTheLineFeed) {
    endWith("hello\r\n");
    EXPECT_EQ(nextLine(reading()), "hello\r");
}

TEST_F(FileHandleTest, readsEmptyLines) {
    endWith("\n\n");
    EXPECT_EQ(nextLine(reading()), "");
    EXPECT_EQ(nextLine(reading()), "");
    EXPECT_EQ(nextLine(reading()), std::nullopt);
}

TEST_F(FileHandleTest, keepsWhatArrivedBeyondALineInOrder) {
    endWith("one\ntwo\nthree\nrest");
    EXPECT_EQ(nextLine(reading()), "one");
    EXPECT_EQ(nextLine(reading()), "two");
    EXPECT_EQ(reading().readByte(), std::byte{'t'});
    EXPECT_EQ(nextLine(reading()), "hree");
    EXPECT_EQ(reading().readByte(), std::byte{'r'});
    EXPECT_EQ(nextLine(reading()), std::nullopt);
}

TEST_F(FileHandleTest, losesAPartOfALineThatNeverEnds) {
    endWith("half a line");
    EXPECT_EQ(nextLine(reading()), std::nullopt);
    EXPECT_EQ(reading().readByte(), std::nullopt);
}

TEST_F(FileHandleTest, joinsALineThatArrivesInPiecesOfOneByte) {
    const std::string text = "one byte at a time";
    std::thread writer([&] {
        for (const char c : text + "\n")
            writing().write(std::string_view(&c, 1));
    });
    EXPECT_EQ(nextLine(reading()), text);
    writer.join();
}

TEST_F(FileHandleTest, writesToAReaderOnlyUntilItsOwnStreamHasEnded) {
    Pipe answers;
    const std::array<std::string_view, 2> line{"a", "\n"};
    EXPECT_TRUE(writing().writeUnlessEnded(line, answers.fileHandleForReading()));
    answers.fileHandleForWriting().close();
    EXPECT_TRUE(writing().writeUnlessEnded(line, answers.fileHandleForReading())) << "nobody has seen the end yet";
    EXPECT_EQ(nextLine(answers.fileHandleForReading()), std::nullopt);
    EXPECT_FALSE(writing().writeUnlessEnded(line, answers.fileHandleForReading()));
    writing().close();
    EXPECT_EQ(nextLine(reading()), "a");
    EXPECT_EQ(nextLine(reading()), "a");
    EXPECT_EQ(nextLine(reading()), std::nullopt);
}

TEST_F(FileHandleTest, givesUpAFullPipeWhoseReadersOwnStreamHasEnded) {
    Pipe answers;
    answers.fileHandleForWriting().close();
    const std::string text = patternOf(std::size_t{4} << 20);
    EXPECT_FALSE(writing().writeUnlessEnded(std::array{std::string_view(text)}, answers.fileHandleForReading()));
}

TEST_F(FileHandleTest, readsALineOfEightMebibytes) {
    const std::string text = patternOf(std::size_t{8} << 20);
    std::thread writer([&] { writing().write(text + "\nnext\n"); });
    EXPECT_EQ(nextLine(reading()), text);
    EXPECT_EQ(nextLine(reading()), "next");
    writer.join();
}

TEST_F(FileHandleTest, readsAWholeStreamByteByByte) {
    const std::string text = patternOf(200'000);
    std::thread writer([&] {
        writing().write(text);
        writing().close();
    });
    std::string seen;
    while (const auto byte = reading().readByte())
        seen += static_cast<char>(*byte);
    writer.join();
    EXPECT_EQ(seen, text);
}

TEST_F(FileHandleTest, reusesTheMemoryOfALine) {
    endWith(std::string(100'000, 'x') + "\nshort\n");
    ByteBuffer line;
    ASSERT_TRUE(reading().readLine(line));
    const char* const memory = line.data();
    ASSERT_TRUE(reading().readLine(line));
    EXPECT_EQ(line.view(), "short");
    EXPECT_EQ(line.data(), memory);
}

TEST_F(FileHandleTest, writesPiecesOneAfterAnother) {
    EXPECT_TRUE(writing().write(std::array<std::string_view, 4>{"a", "", "bc", "d\n"}));
    EXPECT_EQ(nextLine(reading()), "abcd");
}

TEST_F(FileHandleTest, writesPiecesLargerThanThePipeWhole) {
    const std::string head = patternOf(3'000'001);
    const std::string tail = patternOf(2'000'003) + "\n";
    std::thread writer([&] { EXPECT_TRUE(writing().write(std::array<std::string_view, 2>{head, tail})); });
    EXPECT_EQ(nextLine(reading()), head + tail.substr(0, tail.size() - 1));
    writer.join();
}

TEST_F(FileHandleTest, failsToWriteWhenNobodyReads) {
    reading().close();
    EXPECT_FALSE(writing().write("x"));
}

TEST_F(FileHandleTest, neitherReadsNorWritesOnceClosed) {
    EXPECT_TRUE(writing().close());
    EXPECT_FALSE(writing().close());
    EXPECT_FALSE(writing().isOpen());
    EXPECT_EQ(writing().fileDescriptor(), -1);
    EXPECT_FALSE(writing().write("x"));
    reading().close();
    EXPECT_EQ(nextLine(reading()), std::nullopt);
    EXPECT_EQ(reading().readByte(), std::nullopt);
}

TEST_F(FileHandleTest, givesTheDescriptorNumberBackOnlyWhenTheLastCallHasReturned) {
    // More than the pipe holds: the writer is inside its call until everything has been read.
    const std::string text = patternOf(4'000'000);
    const int number = writing().fileDescriptor();
    std::thread writer([&] { EXPECT_TRUE(writing().write(text + "\n")); });
    ASSERT_EQ(reading().readByte(), std::byte{static_cast<unsigned char>(text[0])});
    EXPECT_TRUE(writing().close());
    EXPECT_NE(::fcntl(number, F_GETFD), -1);
    EXPECT_EQ(nextLine(reading()), text.substr(1));
    writer.join();
    EXPECT_EQ(::fcntl(number, F_GETFD), -1);
}

TEST_F(FileHandleTest, readerThatWaitsSeesTheEndWhenTheWriterCloses) {
    std::thread reader([&] { EXPECT_EQ(nextLine(reading()), std::nullopt); });
    writing().close();
    reader.join();
}

TEST(FileHandle, madeFromNoDescriptorIsClosed) {
    EXPECT_FALSE(FileHandle().isOpen());
    EXPECT_FALSE(FileHandle(foundation::Descriptor()).isOpen());
}

TEST_F(PipeTest, isCloseOnExecAtBothEnds) {
    for (FileHandle* handle : {&reading(), &writing()})
        EXPECT_EQ(::fcntl(handle->fileDescriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(PipeTest, blocksAtBothEnds) {
    for (FileHandle* handle : {&reading(), &writing()})
        EXPECT_EQ(::fcntl(handle->fileDescriptor(), F_GETFL) & O_NONBLOCK, 0);
}

// Runs `body` in a child process, because it spoils the descriptors; true if the body said so.
template <typename Body>
bool inChild(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(body() ? 0 : 1);
    int status = 0;
    return ::waitpid(pid, &status, 0) == pid && status == 0;
}

TEST(Pipe, keepsClearOfTheStandardDescriptors) {
    EXPECT_TRUE(inChild([] {
        for (const int standard : {0, 1, 2})
            ::close(standard);
        Pipe pipe;
        return pipe.fileHandleForReading().fileDescriptor() > 2 && pipe.fileHandleForWriting().fileDescriptor() > 2 &&
               ::fcntl(0, F_GETFD) == -1 && ::fcntl(1, F_GETFD) == -1;
    }));
}

TEST(Pipe, saysWhyItCouldNotBeMade) {
    EXPECT_TRUE(inChild([] {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        Pipe pipe;
        return pipe.creationError() == 24 /* EMFILE */ && !pipe.fileHandleForReading().isOpen() &&
               !pipe.fileHandleForWriting().isOpen();
    }));
}

TEST(ByteBuffer, keepsItsContentsWhenItGrows) {
    ByteBuffer buffer;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string piece = patternOf(static_cast<std::size_t>(i % 50));
        buffer.append(piece);
        expected += piece;
    }
    EXPECT_EQ(buffer.view(), expected);
}

TEST(ByteBuffer, isEmptyWithoutMemory) {
    ByteBuffer buffer;
    EXPECT_EQ(buffer.view(), "");
    buffer.append("");
    EXPECT_EQ(buffer.size(), 0U);
}

} // namespace
