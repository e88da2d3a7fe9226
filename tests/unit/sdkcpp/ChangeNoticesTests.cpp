#include "ChangeNotices.h"
#include "Notices.h"

#include "foundation/Descriptor.h"
#include "kemvi/helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace kemvi::kit {
namespace {

using foundation::Descriptor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int patience = 20'000; // milliseconds; what is awaited comes at once

/// A mount's end of the channel: the test takes each request and answers it.
class Channel {
public:
    Channel() {
        std::string folder = (std::filesystem::temp_directory_path() / "kemvi-channel-XXXXXX").string();
        folder_ = ::mkdtemp(folder.data());
    }

    ~Channel() { std::filesystem::remove_all(folder_); }

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    std::string address() const { return folder_ / "socket"; }

    void listen() {
        sockaddr_un where{};
        where.sun_family = AF_UNIX;
        address().copy(where.sun_path, sizeof where.sun_path - 1);
        listener_ = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::bind(listener_.number(), reinterpret_cast<const sockaddr*>(&where), sizeof where), 0);
        ASSERT_EQ(::listen(listener_.number(), 4), 0);
    }

    bool isAskedWithin(int milliseconds) const { return isReadable(listener_, milliseconds); }

    /// The next request line, on a connection that is accepted where there is none.
    std::string request() {
        if (!peer_.isOpen()) {
            EXPECT_TRUE(isReadable(listener_, patience)) << "nobody connects";
            peer_ = Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
            ++connections;
            say(R"({"kemvi":"0.1.0","channel":1,"mountPoint":"/mnt"})");
        }
        std::string line;
        for (char byte = 0; byte != '\n'; line += byte)
            if (!isReadable(peer_, patience) || ::read(peer_.number(), &byte, 1) != 1)
                return line + " (cut off)";
        return line;
    }

    void say(const std::string& text) const {
        const std::string line = text + "\n";
        ::send(peer_.number(), line.data(), line.size(), MSG_NOSIGNAL);
    }

    void answer() const { say(R"({"ok":true,"forgotten":1})"); }

    void drop() { peer_.reset(); }

    int connections = 0;

private:
    static bool isReadable(const Descriptor& descriptor, int milliseconds) {
        pollfd readable{descriptor.number(), POLLIN, 0};
        return ::poll(&readable, 1, milliseconds) == 1;
    }

    std::filesystem::path folder_;
    Descriptor listener_;
    Descriptor peer_;
};

std::string requestFor(const std::vector<std::string>& paths) {
    std::string text;
    for (const std::string& path : paths)
        text += (text.empty() ? "\"" : ",\"") + path + "\"";
    return R"({"op":"invalidate","paths":[)" + text + "]}\n";
}

class Notices : public testing::Test {
protected:
    void tell(const std::vector<std::string>& paths) { notices.add(paths); }

    std::vector<std::string> said() {
        const std::lock_guard guard(lock_);
        return said_;
    }

    /// Waits until something was said.
    void awaitWords() {
        std::unique_lock guard(lock_);
        EXPECT_TRUE(wasSaid_.wait_for(guard, std::chrono::milliseconds(patience), [&] { return !said_.empty(); }));
    }

    Channel channel;

private:
    std::mutex lock_;
    std::condition_variable wasSaid_;
    std::vector<std::string> said_;

protected:
    ChangeNotices notices{channel.address(), [this](const std::string& text) {
                              const std::lock_guard guard(lock_);
                              said_.push_back(text);
                              wasSaid_.notify_all();
                          }};
};

TEST_F(Notices, tellWhatHasChangedInItsOrderAndOnce) {
    channel.listen();
    tell({"/b", "/a", "c/d", "/b"});
    EXPECT_EQ(channel.request(), requestFor({"/b", "/a", "c/d"}));
    tell({"/while it is under way"});
    tell({"/too", "/b"});
    channel.answer();
    EXPECT_EQ(channel.request(), requestFor({"/while it is under way", "/too", "/b"}));
    channel.answer();
    EXPECT_EQ(channel.connections, 1);
    EXPECT_THAT(said(), ElementsAre());
}

TEST_F(Notices, connectForNothing) {
    channel.listen();
    tell({});
    EXPECT_FALSE(channel.isAskedWithin(0));
}

TEST_F(Notices, tellOfEverythingWhereThereIsVeryMuch) {
    channel.listen();
    std::vector<std::string> paths;
    for (std::size_t number = 0; number <= ChangeNotices::mostWaiting; ++number)
        paths.push_back("/" + std::to_string(number));
    tell(paths);
    EXPECT_EQ(channel.request(), requestFor({"/"}));
}

TEST_F(Notices, tellManyBytesInSeveralRequests) {
    channel.listen();
    const std::string a(ChangeNotices::mostPerRequest - 10, 'a');
    tell({a, "b", std::string(20, 'c')});
    EXPECT_EQ(channel.request(), requestFor({a, "b"}));
    channel.answer();
    EXPECT_EQ(channel.request(), requestFor({std::string(20, 'c')}));
}

TEST_F(Notices, tellAgainWhatWasNotAnswered) {
    channel.listen();
    tell({"/a"});
    EXPECT_EQ(channel.request(), requestFor({"/a"}));
    tell({"/b"});
    channel.drop();
    EXPECT_EQ(channel.request(), requestFor({"/b", "/a"}));
    channel.answer();
    EXPECT_EQ(channel.connections, 2);
}

TEST_F(Notices, connectAnewWhereTheConnectionEndedMeanwhile) {
    channel.listen();
    tell({"/a"});
    channel.request();
    channel.answer();
    channel.drop();
    tell({"/b"});
    EXPECT_EQ(channel.request(), requestFor({"/b"}));
}

TEST_F(Notices, tellAMountThatIsNotThereYetWhenItIs) {
    tell({"/a"});
    awaitWords();
    channel.listen();
    EXPECT_EQ(channel.request(), requestFor({"/a"}));
    EXPECT_THAT(said(), ElementsAre("changed: the mount is not to be reached at " + channel.address() +
                                    " (ENOENT); goes on trying"));
}

TEST_F(Notices, sayWhatIsRefusedAndGoOn) {
    channel.listen();
    tell({"/a"});
    channel.request();
    channel.say(R"({"ok":false,"error":{"message":"not this one","code":"badMember"}})");
    tell({"/b"});
    EXPECT_EQ(channel.request(), requestFor({"/b"}));
    EXPECT_THAT(said(), ElementsAre("changed: not this one"));
}

TEST_F(Notices, sayNothingOfAMountThatEnds) {
    channel.listen();
    tell({"/a"});
    channel.request();
    channel.say(R"({"ok":false,"error":{"message":"the mount ends","code":"ending"}})");
    tell({"/b"});
    channel.request();
    EXPECT_THAT(said(), ElementsAre());
}

TEST_F(Notices, leaveWhoeverSpeaksAnotherLanguage) {
    channel.listen();
    tell({"/a"});
    channel.request();
    channel.say("what?");
    channel.drop();
    EXPECT_EQ(channel.request(), requestFor({"/a"}));
}

TEST_F(Notices, endWhileAnAnswerIsOwed) {
    channel.listen();
    tell({"/a"});
    channel.request();
    tell({"/b"});
}

// The rest is of the process's one, which tells from its first change until its end.
TEST(Changed, tellsPathsAndSaysWhatIsNone) {
    Channel channel;
    channel.listen();
    testing::internal::CaptureStderr();
    ::unsetenv("KEMVI_CONTROL");
    changed("/nobody");
    changed("/nobody again");
    ::setenv("KEMVI_CONTROL", channel.address().c_str(), 1);
    changed({"", "/a/../b", std::string_view("/nul\0", 5), "/./a", "\xff", "/good", "/..a"});
    EXPECT_EQ(channel.request(), requestFor({"/good", "/..a"}));
    channel.answer();
    changed(std::vector<std::string>{"/a/../b", "/more"});
    EXPECT_EQ(channel.request(), requestFor({"/more"}));
    changed({"/x", "/y"}); // two, and no text between two places
    channel.answer();
    EXPECT_EQ(channel.request(), requestFor({"/x", "/y"}));
    endNotices();
    changed("/late");
    EXPECT_FALSE(channel.isAskedWithin(0));
    const std::string said = testing::internal::GetCapturedStderr();
    ::unsetenv("KEMVI_CONTROL");
    EXPECT_EQ(said, "kemvi-helper: changed: there is no mount to tell (KEMVI_CONTROL names no socket)\n"
                    "kemvi-helper: changed: \"\" is empty; \"/\" is the whole tree\n"
                    "kemvi-helper: changed: \"/a/../b\" has a part \".\" or \"..\"\n"
                    "kemvi-helper: changed: \"/nul\\u0000\" holds a NUL, which no name can\n"
                    "kemvi-helper: changed: \"/./a\" has a part \".\" or \"..\"\n"
                    "kemvi-helper: changed: a path is no well-formed text\n");
}

} // namespace
} // namespace kemvi::kit
