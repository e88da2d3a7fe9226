#include "TemporaryFolder.h"
#include "control/ControlServer.h"
#include "control/ManyChannels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using control::ChannelAddress;
using control::ChannelAnswer;
using control::ChannelError;
using control::ControlServer;
using controltests::TemporaryFolder;

constexpr std::size_t many = 200;
constexpr auto longEnough = 30s;

std::size_t threadsOfThisProcess() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

/// Kind of what went wrong, or nothing if it answered.
std::optional<ChannelError::Kind> problemOf(const ChannelAnswer& answer) {
    return answer.problem ? std::optional(answer.problem->kind()) : std::nullopt;
}

class ManyChannels : public testing::Test {
protected:
    /// A mount that answers "which" with its number, and notes how many threads this process has at that time.
    void addAnswering() {
        const std::size_t number = channels_.size();
        auto server = std::make_unique<ControlServer>(ControlServer::Greeting{"1", "/mnt"}, nextFolder());
        server->handle("which", {}, [this, number](const control::Request&, control::Reply& reply) {
            most_ = std::max(most_.load(), threadsOfThisProcess());
            reply.succeed(control::Members().add("number", std::uint64_t{number}));
        });
        server->start();
        channels_.push_back({server->path(), ::getpid()});
        servers_.push_back(std::move(server));
    }

    /// One whose process is stopped: connections are taken, and that is all.
    void addSilent() {
        const auto folder = nextFolder();
        silent_.push_back(folder.listen());
        channels_.push_back({folder.pathFor(::getpid()), ::getpid()});
    }

    control::SocketFolder nextFolder() { return control::SocketFolder(folder_ / std::to_string(channels_.size())); }

    TemporaryFolder folder_;
    std::vector<ChannelAddress> channels_;
    std::vector<std::unique_ptr<ControlServer>> servers_;
    std::vector<foundation::Descriptor> silent_;
    std::atomic<std::size_t> most_{0};
};

TEST_F(ManyChannels, allAnswerInTheirOrderToOneThread) {
    for (std::size_t i = 0; i < many; ++i)
        addAnswering();
    const auto before = threadsOfThisProcess();
    const auto answers = control::askAll(channels_, "which", longEnough);
    ASSERT_EQ(answers.size(), many);
    for (std::size_t i = 0; i < many; ++i) {
        ASSERT_TRUE(answers[i].members) << i << ": " << answers[i].problem->what();
        EXPECT_EQ(*answers[i].members->find("number")->asNumber(), static_cast<double>(i));
    }
    EXPECT_EQ(most_, before);
}

TEST_F(ManyChannels, silentOnesTakeTheirOwnLimitTogetherAndNobodyElses) {
    constexpr auto limit = 1000ms;
    for (std::size_t i = 0; i < many; ++i)
        i % 2 == 0 ? addSilent() : addAnswering();
    const auto begin = std::chrono::steady_clock::now();
    const auto answers = control::askAll(channels_, "which", limit);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, limit);
    EXPECT_LT(taken, 3 * limit);
    for (std::size_t i = 0; i < many; ++i)
        EXPECT_EQ(problemOf(answers[i]), i % 2 == 0 ? std::optional(ChannelError::Kind::silent) : std::nullopt) << i;
}

TEST_F(ManyChannels, oneThatTakesNoConnectionIsTriedAgainUntilItsLimit) {
    addAnswering();
    addSilent();
    for (const ChannelAddress full = channels_.back();;) {
        const auto answers = control::askAll({full}, "which", 0ms);
        ASSERT_TRUE(answers.front().problem);
        if (std::string(answers.front().problem->what()) == "takes no connection")
            break;
    }
    const auto answers = control::askAll(channels_, "which", 100ms);
    EXPECT_TRUE(answers.front().members);
    EXPECT_STREQ(answers.back().problem->what(), "takes no connection");
    EXPECT_EQ(problemOf(answers.back()), ChannelError::Kind::silent);
}

TEST_F(ManyChannels, eachProblemIsItsOwnChannels) {
    addAnswering();
    channels_.push_back({folder_ / "nothing/1.sock", ::getpid()});
    channels_.push_back({channels_.front().socketPath, ::getppid()});
    const auto answers = control::askAll(channels_, "which", longEnough);
    EXPECT_EQ(problemOf(answers[0]), std::nullopt);
    EXPECT_EQ(problemOf(answers[1]), ChannelError::Kind::unreachable);
    EXPECT_EQ(problemOf(answers[2]), ChannelError::Kind::foreign);
    const auto refused = control::askAll(channels_, "levitate", longEnough);
    EXPECT_EQ(problemOf(refused[0]), ChannelError::Kind::refused);
    EXPECT_EQ(refused[0].problem->code(), "unknownOperation");
}

TEST_F(ManyChannels, ofMoreThanAreOpenAtATimeAllAreAsked) {
    addAnswering();
    const std::vector<ChannelAddress> same(2 * control::mostChannelsAtOnce + 1, {folder_ / "none/1.sock", 1});
    auto channels = same;
    channels.push_back(channels_.front());
    const auto answers = control::askAll(channels, "which", longEnough);
    EXPECT_TRUE(answers.back().members);
    EXPECT_TRUE(control::askAll({}, "which", longEnough).empty());
}

} // namespace
