#pragma once

#include "FileTreeTest.h"
#include "PlayedKernel.h"

#include "hosts/fuse/kernel/Callers.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/kernel/KernelSession.h"
#include "hosts/fuse/kernel/RequestReports.h"
#include "hosts/fuse/kernel/SessionLoop.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace fusehosttests {

/// Holds up the requests that a served tree receives, until it is opened.
class Gate {
public:
    /// For ServedTree::before: requests that are exactly `request` wait.
    std::function<void(const std::string&)> holding(std::string request);
    /// Waits until a request is held up.
    void waitForRequest();
    void open();

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int held_ = 0;
    bool isOpen_ = false;
};

/// Threads of which the test says what becomes of them.
class PlayedCallers final : public fusehost::Callers {
public:
    void set(std::uint32_t thread, fusehost::CallerFate fate) {
        const std::lock_guard guard(lock_);
        fates_[thread] = fate;
    }

    fusehost::CallerFate fateOf(std::uint32_t thread) const noexcept override {
        const std::lock_guard guard(lock_);
        const auto found = fates_.find(thread);
        return found != fates_.end() ? found->second : fusehost::CallerFate::unseen;
    }

private:
    mutable std::mutex lock_;
    std::map<std::uint32_t, fusehost::CallerFate> fates_;
};

/// A session that serves a MemoryVolume in a thread of its own to a kernel that the test plays. While it is served the
/// tree belongs to that thread.
class SessionTest : public FileTreeTest {
protected:
    /// Makes the session without serving it.
    void connect();
    /// Makes the session, greets it as the kernel does and serves it.
    void start();
    /// Asks the loop to stop.
    void requestStop();
    /// Lets a loop that has stopped serve again.
    void resume();

    /// Tells the loop to refuse everything.
    void refuse() { loop_->refuse(); }

    /// Has something done on the executing thread.
    void hand(fusehost::Errands::Errand errand) { loop_->hand(std::move(errand)); }

    /// Ends the loop's life, which must have stopped.
    void dropLoop() { loop_.reset(); }

    /// Waits for the loop to end and returns what it returned. From then on the tree is the test's again.
    bool waitForEnd();
    void TearDown() override;

    PlayedKernel::Answer greet(std::uint32_t offeredFlags, std::uint32_t moreOfferedFlags = 0);
    /// Looks a name in the root up; ETIMEDOUT, ENOENT... are failures of the test.
    std::uint64_t lookedUp(const std::string& name);

    PlayedKernel kernel;
    PlayedCallers callers;
    fusehost::SessionLoop::Limits limits;
    fusehost::Pace pace{[] {}};
    fusehost::Monitor monitor; // of what the loop executes
    Gate gate;

private:
    struct Context : fusehost::KernelContext {
        PlayedKernel& kernel;
    };

    std::unique_ptr<Context> context_;
    std::unique_ptr<fusehost::KernelSession> session_;
    std::unique_ptr<fusehost::RequestReports> reports_;
    std::unique_ptr<fusehost::SessionLoop> loop_;
    fusehost::EventDescriptor stop_;
    std::thread server_;
    std::optional<bool> result_;
};

} // namespace fusehosttests
