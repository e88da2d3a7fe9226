#include "hosts/fuse/kernel/Callers.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fusehosttests {
namespace {

using fusehost::CallerFate;
using fusehost::isAboutToDie;
using fusehost::SystemCallers;

/// The text of a status file, as far as it matters: sets of signals, one set bit each.
struct Status {
    int thread = 0; // pending for the thread, the process; blocked; ignored; handled
    int process = 0;
    int blocked = 0;
    int ignored = 0;
    int handled = 0;

    std::string text() const {
        return "Name:\tprogram\nTgid:\t4711\nGroups:\t1 2 3\nThreads:\t1\nSigQ:\t1/7654\n" + line("SigPnd", thread) +
               line("ShdPnd", process) + line("SigBlk", blocked) + line("SigIgn", ignored) + line("SigCgt", handled) +
               "CapInh:\tffffffffffffffff\n";
    }

    static std::string line(const char* name, int number) {
        char text[40];
        std::snprintf(text, sizeof text, "%s:\t%016llx\n", name, number == 0 ? 0ULL : 1ULL << (number - 1));
        return text;
    }
};

TEST(CallersTest, nobodyDiesWithoutAPendingSignal) {
    EXPECT_FALSE(isAboutToDie(Status{}.text()));
    EXPECT_FALSE(isAboutToDie((Status{0, 0, SIGINT, SIGHUP, SIGTERM}).text()));
    EXPECT_FALSE(isAboutToDie(""));
    EXPECT_FALSE(isAboutToDie("SigPnd:\t"));
}

TEST(CallersTest, aSignalThatNothingIsDoneAboutEndsTheCaller) {
    for (const int number : {SIGKILL, SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGALRM, SIGUSR1, SIGABRT, SIGRTMIN}) {
        EXPECT_TRUE(isAboutToDie(Status{number}.text())) << number;
        EXPECT_TRUE(isAboutToDie((Status{0, number}).text())) << number;
    }
}

TEST(CallersTest, aSignalThatIsBlockedIgnoredOrHandledDoesNot) {
    for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGALRM, SIGUSR1, SIGRTMIN}) {
        EXPECT_FALSE(isAboutToDie((Status{number, 0, number}).text())) << number;
        EXPECT_FALSE(isAboutToDie((Status{0, number, 0, number}).text())) << number;
        EXPECT_FALSE(isAboutToDie((Status{0, number, 0, 0, number}).text())) << number;
    }
}

TEST(CallersTest, nothingHelpsAgainstSIGKILL) {
    EXPECT_TRUE(isAboutToDie((Status{SIGKILL, SIGALRM, SIGKILL, SIGKILL, SIGALRM}).text()));
}

TEST(CallersTest, signalsThatStopGoOnOrAreIgnoredByDefaultEndNobody) {
    for (const int number : {SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGCHLD, SIGWINCH, SIGURG})
        EXPECT_FALSE(isAboutToDie((Status{number, number}).text())) << number;
}

TEST(CallersTest, seesThisThreadAndThatOneThatHasEndedIsGone) {
    const SystemCallers callers;
    EXPECT_EQ(callers.fateOf(static_cast<std::uint32_t>(gettid())), CallerFate::lives);
    std::uint32_t ended = 0;
    std::thread([&] {
        ended = static_cast<std::uint32_t>(gettid());
        EXPECT_EQ(callers.fateOf(ended), CallerFate::lives);
    }).join();
    EXPECT_EQ(callers.fateOf(ended), CallerFate::dies);
}

TEST(CallersTest, aProcessThatHasEndedAndWasNotWaitedForDies) {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(SystemCallers().fateOf(static_cast<std::uint32_t>(child)), CallerFate::dies);
    waitpid(child, nullptr, 0);
}

TEST(CallersTest, aCallerWithoutNumberCannotBeSeen) {
    EXPECT_EQ(SystemCallers().fateOf(0), CallerFate::unseen);
}

} // namespace
} // namespace fusehosttests
