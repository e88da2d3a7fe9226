#include "RawPeer.h"
#include "TemporaryFolder.h"
#include "control/ControlClient.h"
#include "control/ControlServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using control::ChannelError;
using control::ControlClient;
using control::ControlServer;
using control::LineStream;
using control::Members;
using control::Refusal;
using control::Reply;
using control::Request;
using controltests::RawPeer;
using controltests::TemporaryFolder;

constexpr auto longEnough = 10s;
constexpr const char* greeting = R"({"kemvi":"1.2.3","channel":1,"mountPoint":"/mnt/a b"})";

class Channel : public testing::Test {
protected:
    void handle(const char* name, std::vector<std::string> members, ControlServer::Handler handler) {
        server_->handle(name, std::move(members), std::move(handler));
    }

    /// "echo" answers its member "text".
    void startWithEcho() {
        handle("echo", {"text", "count"}, [](const Request& request, Reply& reply) {
            reply.succeed(Members().add("text", request.text("text").value_or("none")));
        });
        server_->start();
    }

    ControlClient client() { return {server_->path(), ::getpid(), longEnough}; }

    /// The code of the refusal that the request meets.
    std::string refusal(const char* operation, const Members& members = {}) {
        try {
            client().ask(operation, members, longEnough);
        } catch (const ChannelError& error) {
            return error.code() + ": " + error.what();
        }
        return "none";
    }

    /// A peer that was greeted.
    RawPeer peer() {
        RawPeer peer(server_->path());
        EXPECT_EQ(peer.line(), greeting);
        return peer;
    }

    TemporaryFolder folder_;
    std::optional<ControlServer> server_{std::in_place, ControlServer::Greeting{"1.2.3", "/mnt/a b"},
                                         control::SocketFolder(folder_ / "sockets"), 200ms};
};

const std::string& textOf(const kemvi::JSONObject& answer) {
    return *answer.find("text")->asString();
}

TEST_F(Channel, greetsAndAnswers) {
    startWithEcho();
    auto channel = client();
    EXPECT_EQ(*channel.greeting().find("kemvi")->asString(), "1.2.3");
    EXPECT_EQ(*channel.greeting().find("mountPoint")->asString(), "/mnt/a b");
    EXPECT_EQ(textOf(channel.ask("echo", Members().add("text", "one\n\"two\""))), "one\n\"two\"");
    EXPECT_EQ(textOf(channel.ask("echo")), "none");
}

TEST_F(Channel, namesWhatItDoesNotKnow) {
    startWithEcho();
    EXPECT_EQ(refusal("mend"), "unknownOperation: unknown operation \"mend\"; known: echo");
    EXPECT_EQ(refusal("echo", Members().add("txet", "")), "unknownMember: \"echo\" has no member \"txet\"");
    EXPECT_EQ(refusal("echo", Members().add("text", 1)), "badMember: \"text\": expected a string");
    EXPECT_EQ(refusal("echo", Members().addNull("text")), "none") << "null is as good as absent";
}

TEST_F(Channel, refusesWhatIsNoRequestAndGoesOn) {
    startWithEcho();
    auto peer = this->peer();
    for (const char* bad : {"{", "[]", "null", "\"op\"", "{}", R"({"op":1})", "", "\xff"}) {
        peer.say(std::string(bad) + "\n");
        EXPECT_TRUE(peer.line().starts_with(R"({"ok":false,"error":{"message":")")) << bad;
    }
    peer.say(R"({"op":"echo"})"
             "\n");
    EXPECT_EQ(peer.line(), R"({"ok":true,"text":"none"})");
}

TEST_F(Channel, checksMembersByType) {
    handle("all", {"text", "number", "list", "flag"}, [](const Request& request, Reply& reply) {
        request.text("text");
        request.number("number", 0.5, 10);
        request.texts("list");
        request.isSet("flag");
        reply.succeed();
    });
    server_->start();
    EXPECT_EQ(refusal("all", Members().add("number", 11)), "badMember: \"number\": expected a number from 0.5 to 10");
    EXPECT_EQ(refusal("all", Members().addJSON("list", "[1]")), "badMember: \"list\": expected an array of strings");
    EXPECT_EQ(refusal("all", Members().add("flag", "yes")), "badMember: \"flag\": expected true or false");
    EXPECT_EQ(
        refusal(
            "all",
            Members().add("number", 10).add("list", std::vector<std::string>{"a"}).add("flag", true).add("text", "")),
        "none");
}

TEST_F(Channel, turnsWhatIsThrownIntoTheAnswer) {
    handle("refuse", {}, [](const Request&, Reply&) { throw Refusal("busy", "is in use"); });
    handle("fail", {}, [](const Request&, Reply&) { throw std::runtime_error("out of luck"); });
    handle("forget", {}, [](const Request&, Reply& reply) { const Reply dropped = std::move(reply); });
    server_->start();
    EXPECT_EQ(refusal("refuse"), "busy: is in use");
    EXPECT_EQ(refusal("fail"), "failed: out of luck");
    EXPECT_EQ(refusal("forget"), "unanswered: the request was given up");
}

TEST_F(Channel, answersLaterFromAnotherThreadWhileOthersAreServed) {
    std::promise<Reply> kept;
    handle("later", {}, [&](const Request&, Reply& reply) { kept.set_value(std::move(reply)); });
    startWithEcho();
    auto slow = peer();
    slow.say("{\"op\":\"later\"}\n{\"op\":\"echo\",\"text\":\"behind\"}\n");
    Reply reply = kept.get_future().get();
    EXPECT_TRUE(reply.isWanted());
    EXPECT_EQ(textOf(client().ask("echo")), "none") << "another peer does not wait";
    std::thread([&] { reply.succeed(Members().add("text", "late")); }).join();
    EXPECT_EQ(slow.line(), R"({"ok":true,"text":"late"})");
    EXPECT_EQ(slow.line(), R"({"ok":true,"text":"behind"})") << "in the order in which they were asked";
}

TEST_F(Channel, forgetsWhoHasGoneWithoutWaiting) {
    std::promise<Reply> kept;
    handle("later", {}, [&](const Request&, Reply& reply) { kept.set_value(std::move(reply)); });
    startWithEcho();
    auto gone = peer();
    gone.say("{\"op\":\"later\"}\n");
    Reply reply = kept.get_future().get();
    gone.hangUp();
    while (reply.isWanted())
        client().ask("echo");
    reply.succeed();
    EXPECT_EQ(textOf(client().ask("echo")), "none");
}

TEST_F(Channel, readsRequestsInPiecesAndSeveralAtOnce) {
    startWithEcho();
    auto peer = this->peer();
    for (const char c : std::string(R"({"op":"echo","text":"slow"})"))
        peer.say(std::string(1, c));
    peer.say("\n");
    EXPECT_EQ(peer.line(), R"({"ok":true,"text":"slow"})");
    std::string many;
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i)
        many += "{\"op\":\"echo\",\"text\":\"" + std::to_string(i) + "\"}\n";
    std::thread asking([&] { peer.say(many); });
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(peer.line(), R"({"ok":true,"text":")" + std::to_string(i) + "\"}");
    asking.join();
}

TEST_F(Channel, answersWhoHasSaidAllThereIsToSay) {
    startWithEcho();
    auto peer = this->peer();
    peer.say("{\"op\":\"echo\"}\n");
    peer.endInput();
    EXPECT_EQ(peer.line(), R"({"ok":true,"text":"none"})");
    EXPECT_EQ(peer.line(), "(end)");
}

TEST_F(Channel, endsWithWhoNeverEndsALine) {
    startWithEcho();
    auto peer = this->peer();
    const std::string piece(std::size_t{64} << 10, 'x');
    std::thread talking([&] {
        for (std::size_t said = 0; said <= 2 * ControlServer::longestRequest; said += piece.size())
            peer.say(piece);
    });
    EXPECT_EQ(peer.line(), R"({"ok":false,"error":{"message":"a request may have 1048576 bytes at most",)"
                           R"("code":"badRequest"}})");
    talking.join();
    EXPECT_EQ(peer.line(), "(end)");
}

TEST_F(Channel, takesSixteenPeersAndAnotherWhenOneHasGone) {
    startWithEcho();
    std::vector<RawPeer> peers;
    for (std::size_t i = 0; i < ControlServer::mostPeers; ++i)
        peers.push_back(peer());
    RawPeer tooMany(server_->path());
    EXPECT_EQ(tooMany.line(),
              R"({"ok":false,"error":{"message":"16 programs are connected already","code":"tooManyPeers"}})");
    EXPECT_EQ(tooMany.line(), "(end)");
    EXPECT_EQ(refusal("echo"), "tooManyPeers: 16 programs are connected already");
    peers.front().hangUp();
    while (refusal("echo") != "none")
        std::this_thread::yield();
}

TEST_F(Channel, letsNobodyInButItsOwnerAndRoot) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    startWithEcho();
    // Even where the folder would let them through.
    for (auto path = std::filesystem::path(server_->path()).parent_path(); path != testing::TempDir();
         path = path.parent_path()) {
        ::chmod(path.c_str(), 0755);
        if (path == "/tmp" || path == "/")
            break;
        if (path.filename().string().starts_with("kemvi-control-"))
            break;
    }
    ::chmod(server_->path().c_str(), 0666);
    auto ends = foundation::openPipe();
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (::setuid(nobody) != 0)
            ::_exit(1);
        const std::string line = RawPeer(server_->path()).line();
        ::_exit(::write(ends.writing.number(), line.data(), line.size()) > 0 ? 0 : 1);
    }
    ends.writing.reset();
    char text[256];
    const auto count = ::read(ends.reading.number(), text, sizeof text);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_GT(count, 0);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(count)),
              R"({"ok":false,"error":{"message":"only the owner of the mount and root may ask","code":"denied"}})");
}

TEST_F(Channel, refusesWhatIsNotAnsweredWhenItEnds) {
    std::promise<Reply> kept;
    handle("later", {}, [&](const Request&, Reply& reply) { kept.set_value(std::move(reply)); });
    server_->start();
    auto peer = this->peer();
    peer.say("{\"op\":\"later\"}\n");
    Reply reply = kept.get_future().get();
    const std::string path = server_->path();
    server_.reset();
    EXPECT_EQ(peer.line(), R"({"ok":false,"error":{"message":"the mount ends","code":"ending"}})");
    EXPECT_EQ(peer.line(), "(end)");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(reply.isWanted());
    reply.succeed();
}

/// A channel with a stream whose producer is the test.
class Stream : public Channel {
protected:
    void SetUp() override {
        handle("follow", {"room"}, [this](const Request& request, Reply& reply) {
            const auto room = static_cast<std::size_t>(request.number("room", 1, 1 << 20).value_or(1 << 20));
            started_.set_value(reply.stream(
                Members().add("text", "begins"), [this] { gone_.set_value(); }, room));
        });
        server_->start();
    }

    std::shared_ptr<LineStream> started() { return started_.get_future().get(); }

    void expectGone() { EXPECT_EQ(gone_.get_future().wait_for(longEnough), std::future_status::ready); }

    std::promise<std::shared_ptr<LineStream>> started_;
    std::promise<void> gone_;
};

TEST_F(Stream, sendsLinesInOrderUntilItIsEnded) {
    auto channel = client();
    EXPECT_EQ(textOf(channel.ask("follow")), "begins");
    const auto stream = started();
    constexpr int count = 10000;
    std::thread producing([&] {
        for (int i = 0; i < count; ++i)
            while (!stream->push("{\"n\":" + std::to_string(i) + "}"))
                std::this_thread::yield();
        stream->end();
    });
    int expected = 0;
    while (const auto line = channel.nextLine(longEnough)) {
        if (line->starts_with("{\"lost\""))
            continue; // the producer tried once more
        ASSERT_EQ(*line, "{\"n\":" + std::to_string(expected++) + "}");
    }
    EXPECT_EQ(expected, count);
    producing.join();
    EXPECT_FALSE(stream->isWanted());
    EXPECT_FALSE(stream->push("{}"));
    expectGone();
}

TEST_F(Stream, tellsItsProducerAtOnceWhenThePeerHasGone) {
    std::optional<ControlClient> channel(client());
    channel->ask("follow");
    const auto stream = started();
    EXPECT_TRUE(stream->isWanted());
    channel.reset();
    expectGone();
    EXPECT_FALSE(stream->isWanted());
}

TEST_F(Stream, tellsItsProducerWhenTheServerEnds) {
    auto channel = client();
    channel.ask("follow");
    const auto stream = started();
    stream->push("{\"last\":true}");
    server_.reset();
    expectGone();
    EXPECT_FALSE(stream->push("{}"));
    EXPECT_EQ(channel.nextLine(longEnough), "{\"last\":true}");
    EXPECT_EQ(channel.nextLine(longEnough), std::nullopt);
}

TEST_F(Stream, losesLinesNotTimeWhereNobodyReadsAndThenThePeer) {
    auto peer = this->peer();
    peer.say("{\"op\":\"follow\",\"room\":10000}\n");
    const auto stream = started();
    const std::string line(1000, '"');
    std::uint64_t pushed = 0;
    while (stream->isWanted()) { // until its patience ends
        stream->push(line);
        ++pushed;
    }
    expectGone();
    EXPECT_GT(stream->lost(), 0U);
    EXPECT_LT(stream->lost(), pushed);
}

TEST_F(Stream, saysHowManyLinesWereLostWhereTheyAreMissing) {
    auto peer = this->peer();
    peer.say("{\"op\":\"follow\",\"room\":10000}\n");
    EXPECT_EQ(peer.line(), R"({"ok":true,"text":"begins"})");
    const auto stream = started();
    std::uint64_t next = 0;
    while (stream->lost() < 3) {
        const std::string number = std::to_string(next++);
        stream->push("{\"n\":" + number + ",\"filled\":\"" + std::string(1000, 'x') + "\"}");
    }
    stream->end();
    std::uint64_t expected = 0;
    std::uint64_t lost = 0;
    for (std::string line = peer.line(); line != "(end)"; line = peer.line()) {
        if (line.starts_with("{\"lost\":")) {
            const auto count = std::stoull(line.substr(8));
            lost += count;
            expected += count;
        } else {
            ASSERT_TRUE(line.starts_with("{\"n\":" + std::to_string(expected++) + ",")) << line;
        }
    }
    EXPECT_EQ(expected, next);
    EXPECT_EQ(lost, stream->lost());
}

TEST_F(Channel, hasNoUseForAStreamThatComesTooLate) {
    std::promise<Reply> kept;
    handle("later", {}, [&](const Request&, Reply& reply) { kept.set_value(std::move(reply)); });
    server_->start();
    auto peer = this->peer();
    peer.say("{\"op\":\"later\"}\n");
    Reply reply = kept.get_future().get();
    server_.reset();
    bool gone = false;
    const auto stream = reply.stream({}, [&] { gone = true; });
    EXPECT_TRUE(gone);
    EXPECT_FALSE(stream->isWanted());
}

} // namespace
