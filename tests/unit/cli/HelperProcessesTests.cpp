#include "Shell.h"
#include "cli/HelperProcesses.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>

namespace {

using namespace std::chrono_literals;
using cli::DeathWatch;
using cli::HelperProcesses;
using clitests::Shell;

constexpr auto longEnough = 20s;

class MountsHelpers : public testing::Test {
protected:
    // A helper that has been told of.
    void start(const Shell& shell) { helpers_.helperStarted(shell.child); }

    DeathWatch watch_{cli::Patience{longEnough, longEnough}};
    HelperProcesses helpers_{watch_};
};

TEST_F(MountsHelpers, areNoneAtFirst) {
    EXPECT_EQ(helpers_.pid(), std::nullopt);
    EXPECT_FALSE(helpers_.ended());
    EXPECT_EQ(helpers_.exitStatus(), std::nullopt);
    EXPECT_EQ(helpers_.afterEndOfOutput(), "");
    helpers_.kill();
}

TEST_F(MountsHelpers, areKnownFromTheirStartOn) {
    Shell shell("read -r line");
    start(shell);
    EXPECT_EQ(helpers_.pid(), shell.pid());
    EXPECT_FALSE(helpers_.ended());
    EXPECT_EQ(helpers_.afterEndOfOutput(), "") << "it answers, as far as is known";
    shell.endInput();
}

TEST_F(MountsHelpers, areSaidToHaveExited) {
    Shell shell("exit 3");
    start(shell);
    helpers_.helperEnded(shell.child, "getattr");
    EXPECT_TRUE(helpers_.ended());
    EXPECT_EQ(helpers_.exitStatus()->code(), 3);
    EXPECT_EQ(helpers_.afterEndOfOutput(), "the helper (pid " + std::to_string(shell.pid()) + ") exited with status 3");
}

TEST_F(MountsHelpers, areSaidToHaveBeenKilled) {
    Shell shell("read -r line");
    start(shell);
    helpers_.kill();
    helpers_.helperEnded(shell.child, "getattr");
    EXPECT_EQ(helpers_.afterEndOfOutput(),
              "the helper (pid " + std::to_string(shell.pid()) + ") was killed by signal 9 (Killed)");
}

TEST_F(MountsHelpers, areSaidToRunStill) {
    Shell shell("read -r line");
    start(shell);
    helpers_.helperEnded(shell.child, "getattr");
    EXPECT_EQ(helpers_.exitStatus(), std::nullopt);
    EXPECT_EQ(helpers_.afterEndOfOutput(),
              "the helper (pid " + std::to_string(shell.pid()) + ") has closed its output but still runs");
    shell.endInput();
}

TEST_F(MountsHelpers, areSaidToHaveEndedIfSomebodyElseKnowsHow) {
    Shell shell("exit 3");
    start(shell);
    ASSERT_EQ(::waitpid(shell.pid(), nullptr, 0), shell.pid());
    helpers_.helperEnded(shell.child, "");
    EXPECT_EQ(helpers_.afterEndOfOutput(), "the helper (pid " + std::to_string(shell.pid()) + ") has ended");
}

TEST_F(MountsHelpers, areTheLastOneStarted) {
    Shell first("exit 1");
    Shell second("read -r line");
    start(first);
    helpers_.helperEnded(first.child, "getattr");
    start(second);
    EXPECT_EQ(helpers_.pid(), second.pid());
    EXPECT_FALSE(helpers_.ended());
    helpers_.helperEnded(first.child, "getattr"); // late
    EXPECT_FALSE(helpers_.ended());
    second.endInput();
}

TEST(MountsHelpersEnd, leavesNoneBehind) {
    Shell shell("trap '' TERM; echo ready; while :; do sleep 0.01; done");
    EXPECT_EQ(shell.line(), "ready");
    DeathWatch watch(cli::Patience{longEnough, longEnough});
    {
        HelperProcesses helpers(watch);
        helpers.helperStarted(shell.child);
    }
    EXPECT_FALSE(shell.child->isRunning());
    EXPECT_EQ(shell.child->exitStatus()->signal(), SIGKILL);
}

TEST(ADeathWatch, endsAHelperThatOutlivesItsOwner) {
    Shell shell("trap '' TERM; echo ready; while :; do sleep 0.01; done");
    EXPECT_EQ(shell.line(), "ready");
    {
        DeathWatch watch(cli::Patience{0ms, 0ms});
        watch.guard(cli::HeldProcess(shell.pid()));
    }
    shell.child->waitUntilExit();
    EXPECT_EQ(shell.child->exitStatus()->signal(), SIGKILL);
}

TEST(ADeathWatch, letsAHelperFinish) {
    Shell shell("read -r line; echo finished; exit 3");
    const cli::HeldProcess held(shell.pid());
    shell.endInput();
    {
        DeathWatch watch(cli::Patience{longEnough, longEnough});
        watch.guard(held);
    }
    EXPECT_EQ(shell.line(), "finished");
    EXPECT_TRUE(held.gone());
    EXPECT_EQ(shell.child->exitStatus()->code(), 3);
}

TEST(ADeathWatch, endsAllThatItWasTold) {
    Shell first("read -r line");
    Shell second("read -r line");
    {
        DeathWatch watch(cli::Patience{0ms, longEnough});
        watch.guard(cli::HeldProcess(first.pid()));
        watch.guard(cli::HeldProcess(second.pid()));
    }
    EXPECT_EQ(first.child->exitStatus()->signal(), SIGTERM);
    EXPECT_EQ(second.child->exitStatus()->signal(), SIGTERM);
}

} // namespace
