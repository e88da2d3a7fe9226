#include "RawPeer.h"
#include "TemporaryFolder.h"
#include "control/ControlClient.h"
#include "control/SocketFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using control::ChannelError;
using control::ControlClient;
using control::SocketFolder;
using controltests::RawPeer;
using controltests::TemporaryFolder;
namespace filesystem = std::filesystem;

class SocketFolders : public testing::Test {
protected:
    static std::string problemOf(const std::string& path) {
        try {
            const SocketFolder folder(path);
        } catch (const ChannelError& error) {
            return error.what();
        }
        return "none";
    }

    static mode_t modeOf(const std::string& path) {
        struct stat about {};

        return ::lstat(path.c_str(), &about) == 0 ? about.st_mode & 07777 : 0;
    }

    /// The socket of a process that was killed.
    std::string deadSocket(const SocketFolder& folder) const {
        const pid_t child = ::fork();
        if (child == 0) {
            const auto socket = folder.listen();
            ::_exit(socket.isOpen() ? 0 : 1);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        return folder.pathFor(child);
    }

    TemporaryFolder folder_;
};

TEST_F(SocketFolders, areTheirOwnersAlone) {
    ::umask(0);
    const SocketFolder folder(folder_ / "new");
    EXPECT_EQ(modeOf(folder.path()), 0700U);
    const auto socket = folder.listen();
    EXPECT_EQ(modeOf(folder.pathFor(::getpid())), 0600U);
    folder.remove();
    EXPECT_TRUE(filesystem::is_empty(folder.path()));
}

TEST_F(SocketFolders, areClosedToOthersIfTheyWereOpen) {
    filesystem::create_directory(folder_ / "open");
    ::chmod((folder_ / "open").c_str(), 0777);
    const SocketFolder folder(folder_ / "open");
    EXPECT_EQ(modeOf(folder.path()), 0700U);
}

TEST_F(SocketFolders, areNotReachedThroughLinks) {
    filesystem::create_directory(folder_ / "target");
    filesystem::create_directory_symlink(folder_ / "target", folder_ / "link");
    filesystem::create_directory_symlink(folder_ / "nowhere", folder_ / "dangling");
    std::ofstream(folder_ / "file") << "x";
    for (const char* name : {"link", "dangling", "file"})
        EXPECT_EQ(problemOf(folder_ / name), (folder_ / name) + ": is a link or a file; expected a folder");
    EXPECT_FALSE(filesystem::exists(folder_ / "nowhere"));
}

TEST_F(SocketFolders, areNotThoseOfSomebodyElse) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give a folder away";
    filesystem::create_directory(folder_ / "foreign");
    ASSERT_EQ(::chown((folder_ / "foreign").c_str(), 12345, 12345), 0);
    EXPECT_EQ(problemOf(folder_ / "foreign"), (folder_ / "foreign") + ": belongs to user 12345");
}

TEST_F(SocketFolders, sayWhatCannotBeMade) {
    EXPECT_EQ(problemOf(folder_ / "no/folder"),
              (folder_ / "no/folder") + ": cannot be made: No such file or directory");
    EXPECT_EQ(problemOf("/" + std::string(100, 'x')),
              "/" + std::string(100, 'x') + ": is too long for the address of a socket");
}

TEST_F(SocketFolders, loseTheSocketsOfTheDeadAndNoOthers) {
    const SocketFolder folder(folder_ / "sockets");
    const auto dead = deadSocket(folder);
    const auto alive = folder.listen();
    std::ofstream(folder.path() + "/999999999.sock.txt") << "not ours to judge";
    ASSERT_TRUE(filesystem::exists(dead));
    EXPECT_THROW(ControlClient(dead, ::getpid(), 5s), ChannelError);
    folder.clear();
    EXPECT_FALSE(filesystem::exists(dead));
    EXPECT_TRUE(filesystem::exists(folder.pathFor(::getpid())));
    EXPECT_TRUE(filesystem::exists(folder.path() + "/999999999.sock.txt"));
}

TEST_F(SocketFolders, giveANumberToTheProcessThatHasItNow) {
    const SocketFolder folder(folder_ / "sockets");
    filesystem::rename(deadSocket(folder), folder.pathFor(::getpid()));
    const auto alive = folder.listen();
    EXPECT_TRUE(RawPeer(folder.pathFor(::getpid())).isConnected());
}

TEST_F(SocketFolders, holdClientsUpForNoLongerThanTheyWant) {
    const SocketFolder folder(folder_ / "sockets");
    const auto socket = folder.listen();
    try {
        const ControlClient client(folder.pathFor(::getpid()), ::getpid(), 50ms); // nobody greets it
        FAIL();
    } catch (const ChannelError& error) {
        EXPECT_EQ(error.kind(), ChannelError::Kind::silent);
    }
}

TEST_F(SocketFolders, areNotTrustedByClientsThatExpectAnotherProcess) {
    const SocketFolder folder(folder_ / "sockets");
    const auto socket = folder.listen();
    try {
        const ControlClient client(folder.pathFor(::getpid()), ::getppid(), 5s);
        FAIL();
    } catch (const ChannelError& error) {
        EXPECT_EQ(error.kind(), ChannelError::Kind::foreign);
    }
}

} // namespace
