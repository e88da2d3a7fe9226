#include "hosts/fuse/placement/LinuxTasks.h"

#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <mutex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fusehosttests {
namespace {

using fusehost::LinuxTasks;
using fusehost::ProcessorSet;
using fusehost::Task;
using testing::Contains;
using testing::Not;
using testing::Optional;

/// A child process of this thread that does nothing until it goes.
class IdleChild {
public:
    IdleChild() : pid(fork()) {
        if (pid == 0)
            for (;;)
                pause();
    }

    ~IdleChild() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    IdleChild(const IdleChild&) = delete;
    IdleChild& operator=(const IdleChild&) = delete;

    const pid_t pid;
};

/// A thread that does nothing until it goes.
class IdleThread {
public:
    IdleThread()
        : thread_([this] {
              std::unique_lock guard(lock_);
              number_ = gettid();
              changed_.notify_all();
              changed_.wait(guard, [this] { return ends_; });
          }) {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return number_ != 0; });
    }

    ~IdleThread() {
        {
            const std::lock_guard guard(lock_);
            ends_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    IdleThread(const IdleThread&) = delete;
    IdleThread& operator=(const IdleThread&) = delete;

    pid_t number() const { return number_; }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    pid_t number_ = 0;
    bool ends_ = false;
    std::thread thread_;
};

class LinuxTasksTest : public testing::Test {
protected:
    LinuxTasks tasks;
    const Task self{getpid(), gettid()};
};

TEST_F(LinuxTasksTest, changesTheMaskOfOneThread) {
    const IdleThread other;
    const ProcessorSet before = *tasks.affinity(0);
    const ProcessorSet one = ProcessorSet::of(before.first());
    EXPECT_EQ(tasks.setAffinity(other.number(), one), 0);
    EXPECT_TRUE(*tasks.affinity(other.number()) == one);
    EXPECT_TRUE(*tasks.affinity(0) == before);
    EXPECT_EQ(tasks.setAffinity(other.number(), ProcessorSet()), EINVAL);
}

TEST_F(LinuxTasksTest, tellsWhatOneWouldGetWithoutAnyRestriction) {
    const IdleChild child;
    const ProcessorSet before = *tasks.affinity(0);
    ASSERT_EQ(tasks.setAffinity(0, ProcessorSet::of(before.first())), 0);
    const ProcessorSet all = tasks.unrestricted();
    EXPECT_EQ(tasks.affinity(0)->count(), 1);
    EXPECT_EQ(tasks.setAffinity(0, before), 0);
    EXPECT_TRUE((all & before) == before);
}

TEST_F(LinuxTasksTest, tellsWhatAThreadHasHadOfProcessors) {
    const auto before = tasks.times(self);
    ASSERT_TRUE(before);
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    while (std::chrono::steady_clock::now() < until) {
    }
    usleep(1000); // what ran is counted when it sleeps
    const auto after = tasks.times(self);
    EXPECT_GT(after->run, before->run);
    EXPECT_GT(after->turns, before->turns);
    EXPECT_TRUE(tasks.affinity(0)->has(tasks.processorOf(self)));
}

TEST_F(LinuxTasksTest, tellsHowManyThreadsAreReadyOnHowManyProcessors) {
    EXPECT_GE(tasks.runnable(), 1) << "this one";
    EXPECT_GE(tasks.processors(), tasks.unrestricted().count());
}

TEST_F(LinuxTasksTest, showsThreadsAndChildren) {
    const auto before = tasks.family(self);
    EXPECT_EQ(tasks.family(self), before);
    {
        const IdleThread thread;
        EXPECT_NE(tasks.family(self), before);
        EXPECT_THAT(tasks.threads(self.process), Contains(thread.number()));
        const IdleChild child;
        EXPECT_THAT(tasks.children(self.process), Optional(Contains(child.pid)));
        EXPECT_THAT(tasks.threads(child.pid), testing::ElementsAre(child.pid));
    }
    EXPECT_EQ(tasks.family(self), before);
    const IdleChild child;
    EXPECT_NE(tasks.family(self), before);
}

TEST_F(LinuxTasksTest, keepsNoFileOpenWhileItRests) {
    const int next = dup(0);
    close(next);
    tasks.times(self);
    tasks.family(self);
    EXPECT_NE(fcntl(next, F_GETFD), -1);
    tasks.rest();
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
}

TEST_F(LinuxTasksTest, findsNothingOfOneThatHasGone) {
    pid_t gone = 0;
    {
        const IdleChild child;
        gone = child.pid;
        EXPECT_TRUE(tasks.affinity(gone));
        tasks.family({gone, gone}); // keeps a file of it
    }
    EXPECT_FALSE(tasks.affinity(gone));
    EXPECT_FALSE(tasks.times({gone, gone}));
    EXPECT_EQ(tasks.processorOf({gone, gone}), -1);
    EXPECT_THAT(tasks.threads(gone), testing::IsEmpty());
    EXPECT_THAT(tasks.children(gone), Optional(testing::IsEmpty()));
    EXPECT_EQ(tasks.setAffinity(gone, ProcessorSet::of(0)), ESRCH);
    EXPECT_EQ(tasks.family({gone, gone}), tasks.family({gone, gone}));
}

} // namespace
} // namespace fusehosttests
