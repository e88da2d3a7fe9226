#include "Shell.h"
#include "cli/HeldProcess.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

using namespace std::chrono_literals;
using cli::HeldProcess;
using clitests::Shell;

constexpr auto longEnough = 20s;
constexpr cli::Patience impatient{0ms, 0ms};

std::vector<HeldProcess> held(const Shell& shell) {
    std::vector<HeldProcess> processes;
    processes.emplace_back(shell.pid());
    return processes;
}

TEST(HeldProcess, isGoneFromTheStartIfThereIsNone) {
    Shell shell("exit 0");
    shell.child->waitUntilExit();
    const HeldProcess process(shell.pid());
    EXPECT_EQ(process.pid(), shell.pid());
    EXPECT_EQ(process.descriptor(), -1);
    EXPECT_TRUE(process.gone());
    process.waitGone();
    process.signal(SIGKILL);
    process.signalGroup(SIGKILL);
}

TEST(HeldProcess, isGoneOnceItHasEndedThoughNobodyWaitedForIt) {
    Shell shell("read -r line");
    const HeldProcess process(shell.pid());
    EXPECT_FALSE(process.gone());
    EXPECT_FALSE(process.waitGone(-1ms));
    EXPECT_FALSE(process.waitGone(1ms));
    shell.endInput();
    EXPECT_TRUE(process.waitGone(longEnough));
    process.waitGone();
    EXPECT_TRUE(process.gone());
}

TEST(HeldProcess, isSignalled) {
    Shell shell("read -r line");
    const HeldProcess process(shell.pid());
    process.signal(SIGTERM);
    process.waitGone();
    EXPECT_EQ(shell.child->exitStatus()->signal(), SIGTERM);
}

TEST(HeldProcess, isSignalledWithItsGroup) {
    Shell shell("sleep 1000 & echo $!; wait");
    const HeldProcess process(shell.pid());
    const HeldProcess started(std::stoi(shell.line()));
    process.signalGroup(SIGKILL);
    EXPECT_TRUE(process.waitGone(longEnough));
    EXPECT_TRUE(started.waitGone(longEnough));
}

TEST(HeldProcess, canBeMoved) {
    Shell shell("read -r line");
    HeldProcess first(shell.pid());
    HeldProcess second(std::move(first));
    EXPECT_EQ(second.pid(), shell.pid());
    EXPECT_FALSE(second.gone());
    second.signal(SIGKILL);
    EXPECT_TRUE(second.waitGone(longEnough));
}

TEST(EndProcesses, leavesThoseAloneThatEndByThemselves) {
    Shell shell("read -r line; exit 3");
    shell.endInput();
    EXPECT_TRUE(cli::endProcesses(held(shell), {longEnough, longEnough}));
    EXPECT_EQ(shell.child->exitStatus()->code(), 3);
}

TEST(EndProcesses, terminatesThoseThatDoNot) {
    Shell shell("trap 'exit 5' TERM; echo ready; while :; do sleep 0.01; done");
    EXPECT_EQ(shell.line(), "ready");
    EXPECT_FALSE(cli::endProcesses(held(shell), {0ms, longEnough}));
    shell.child->waitUntilExit();
    EXPECT_EQ(shell.child->exitStatus()->code(), 5);
}

TEST(EndProcesses, killsThoseThatDoNotHear) {
    Shell shell("trap '' TERM; echo ready; while :; do sleep 0.01; done");
    EXPECT_EQ(shell.line(), "ready");
    EXPECT_FALSE(cli::endProcesses(held(shell), impatient));
    shell.child->waitUntilExit();
    EXPECT_EQ(shell.child->exitStatus()->signal(), SIGKILL);
}

TEST(EndProcesses, hasNothingToDoForNone) {
    EXPECT_TRUE(cli::endProcesses({}, impatient));
}

} // namespace
