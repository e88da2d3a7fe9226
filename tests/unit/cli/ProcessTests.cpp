#include "cli/HostRecord.h"
#include "cli/ProcessTable.h"
#include "cli/Signals.h"
#include "foundation/Pipe.h"
#include "unit/cli/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <functional>
#include <unistd.h>

namespace {

using namespace cli;
using clitests::TemporaryFolder;
using testing::Contains;
using testing::Field;
using testing::Not;

/// A child process that does something, says so, and then waits to be killed.
class Child {
public:
    explicit Child(const std::function<void()>& begin) {
        foundation::Pipe ready;
        pid_ = ::fork();
        if (pid_ == 0) {
            begin();
            ready.fileHandleForWriting().close();
            ready.fileHandleForReading().close();
            for (;;)
                ::pause();
        }
        ready.fileHandleForWriting().close();
        char byte = 0;
        [[maybe_unused]] const auto end = ::read(ready.fileHandleForReading().fileDescriptor(), &byte, 1);
    }

    ~Child() { end(); }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }

    void end() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
};

std::function<void()> named(const char* name) {
    return [=] { ::prctl(PR_SET_NAME, name); };
}

std::optional<ServingProcess> servingProcessOf(pid_t pid) {
    for (ServingProcess& found : servingProcesses())
        if (found.process.pid() == pid)
            return std::move(found);
    return std::nullopt;
}

// The processes there are

TEST(ProcessTable, listsAProcessWhileThereIsOne) {
    Child child(named("child"));
    const pid_t pid = child.pid();
    EXPECT_THAT(allProcesses(), Contains(pid));
    EXPECT_EQ(processName(pid), "child");
    child.end();
    EXPECT_THAT(allProcesses(), Not(Contains(pid)));
    EXPECT_EQ(processName(pid), "");
}

TEST(ProcessTable, findsChildrenWhateverTheirNamesHold) {
    for (const char* name : {"plain", "a) Z 1 1", "(((", "))", " 1 2 3", "new\nline"}) {
        const Child child(named(name));
        EXPECT_THAT(childrenOf(::getpid()).helpers, Contains(child.pid())) << name;
        EXPECT_EQ(heldChildren({child.pid()}, ::getpid()).size(), 1U) << name;
        EXPECT_TRUE(heldChildren({child.pid()}, child.pid()).empty()) << name;
    }
}

TEST(ProcessTable, tellsTheProgramOfTheKernelsMountsFromAHelper) {
    const Child child(named("fusermount3"));
    EXPECT_THAT(childrenOf(::getpid()).watchers, Contains(child.pid()));
    EXPECT_THAT(childrenOf(::getpid()).helpers, Not(Contains(child.pid())));
}

TEST(ProcessTable, holdsNoChildThatHasEnded) {
    Child child(named("child"));
    const pid_t pid = child.pid();
    const HeldProcess held(pid);
    EXPECT_FALSE(held.gone());
    child.end();
    EXPECT_TRUE(held.gone());
    EXPECT_TRUE(HeldProcess(pid).gone());
    EXPECT_TRUE(heldChildren({pid}, ::getpid()).empty());
}

TEST(ProcessTable, namesWhoUsesAFolder) {
    const TemporaryFolder folder;
    const std::string path = folder.path();
    const Child inside([&] { std::filesystem::current_path(path); });
    const Child outside(named("outside"));
    const auto is = [](pid_t pid) { return Field(&ProcessName::pid, pid); };
    EXPECT_THAT(usersOfMount(path, 0, 5), testing::ElementsAre(is(inside.pid())));
    EXPECT_TRUE(usersOfMount(path, inside.pid(), 5).empty());
    EXPECT_TRUE(usersOfMount(path, 0, 0).empty());
    EXPECT_TRUE(usersOfMount(path.substr(0, path.size() - 1), 0, 5).empty()) << "a name that is the start of another";
}

// Those that serve

TEST(HostRecord, tellsMountPointAndDeviceToOtherProcesses) {
    const std::string odd = "/mnt/two\nlines and a ) ";
    const Child host([&] {
        static HostRecord record(odd);
        record.setDevice(4294967295U);
        ::prctl(PR_SET_NAME, "kemvi-4294967295");
    });
    const auto found = servingProcessOf(host.pid());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->mountPoint, odd);
    EXPECT_EQ(found->deviceMinor, 4294967295U);
    EXPECT_EQ(found->owner, ::getuid());
}

TEST(HostRecord, hasNoDeviceBeforeAndAfterTheMount) {
    const Child before([] {
        static const HostRecord record("/mnt");
        ::prctl(PR_SET_NAME, "kemvi-mount");
    });
    const Child after([] {
        static HostRecord record("/mnt");
        record.setDevice(123456789);
        record.setDevice(std::nullopt);
        ::prctl(PR_SET_NAME, "kemvi-7");
    });
    for (const pid_t pid : {before.pid(), after.pid()}) {
        const auto found = servingProcessOf(pid);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->deviceMinor, std::nullopt);
        EXPECT_EQ(found->mountPoint, "/mnt");
    }
}

/// Of the clock by which files are dated.
void waitForTheNextTick() {
    timespec begin{};
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &begin);
    do
        ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    while (now.tv_sec == begin.tv_sec && now.tv_nsec == begin.tv_nsec);
}

TEST(HostRecord, leavesADeviceNumberThatWasGivenAwayAgainToTheLastProcessThatNotedIt) {
    const auto host = [](const char* mountPoint) {
        return Child([mountPoint] {
            static HostRecord record(mountPoint);
            record.setDevice(123456788);
            ::prctl(PR_SET_NAME, "kemvi-123456788");
        });
    };
    const Child stopped = host("/mnt/gone");
    waitForTheNextTick();
    const Child serving = host("/mnt/there");
    const auto gone = servingProcessOf(stopped.pid());
    const auto there = servingProcessOf(serving.pid());
    ASSERT_TRUE(gone && there);
    EXPECT_EQ(gone->deviceMinor, std::nullopt);
    EXPECT_EQ(there->deviceMinor, 123456788U);
}

TEST(HostRecord, isNotSeenInAProcessOfAnotherNameOrWithoutOne) {
    const Child otherName([] {
        static const HostRecord record("/mnt");
        ::prctl(PR_SET_NAME, "other");
    });
    const Child nameAlone(named("kemvi-7"));
    EXPECT_FALSE(servingProcessOf(otherName.pid()));
    EXPECT_FALSE(servingProcessOf(nameAlone.pid()));
}

// Signals. Each in a process of its own, whose exit code tells.

bool has(const sigset_t& set, int number) {
    return sigismember(&set, number) == 1;
}

sigset_t blockedSignals() {
    sigset_t set;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return set;
}

void exitWith(bool good) {
    ::_exit(good ? 0 : 1);
}

TEST(SignalsDeathTest, askForTheEndUnlessTheyAreIgnored) {
    EXPECT_EXIT(
        {
            std::signal(SIGHUP, SIG_IGN);
            const sigset_t set = stopSignals();
            exitWith(has(set, SIGINT) && has(set, SIGTERM) && !has(set, SIGHUP) && !has(set, SIGUSR1));
        },
        testing::ExitedWithCode(0), "");
}

TEST(SignalsDeathTest, areBlockedUnlessTheyAreIgnored) {
    EXPECT_EXIT(
        {
            std::signal(SIGINT, SIG_IGN);
            blockStopSignals();
            const sigset_t set = blockedSignals();
            exitWith(!has(set, SIGINT) && has(set, SIGTERM) && has(set, SIGHUP) &&
                     std::signal(SIGPIPE, SIG_DFL) == SIG_IGN);
        },
        testing::ExitedWithCode(0), "");
}

TEST(SignalsDeathTest, areAllHeededByAProcessThatNoTerminalReaches) {
    EXPECT_EXIT(
        {
            for (const int number : {SIGINT, SIGTERM, SIGHUP})
                std::signal(number, SIG_IGN);
            heedAllStopSignals();
            const sigset_t stopping = stopSignals();
            const sigset_t blocked = blockedSignals();
            bool good = true;
            for (const int number : {SIGINT, SIGTERM, SIGHUP})
                good = good && has(stopping, number) && has(blocked, number);
            exitWith(good);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
