#include "hosts/fuse/kernel/SessionLoop.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/LibFuse.h"
#include "hosts/fuse/support/BackgroundThread.h"
#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <poll.h>
#include <utility>

namespace fusehost {
namespace {

using namespace std::chrono_literals;

/// An operation that takes longer gets the watcher's attention.
constexpr auto patience = 50ms;
/// The watcher goes to sleep when nothing happened for so many times its patience.
constexpr int idleRounds = 20;
/// How long to wait before a request is asked for again that there was no memory for.
constexpr auto outOfMemory = 10ms;

} // namespace

SessionLoop::SessionLoop(fuse_session* session, int descriptor, const Callers& callers, IdleWork* idleWork, Pace* pace,
                         Limits limits)
    : session_(session), descriptor_(descriptor), callers_(callers), idleWork_(idleWork), pace_(pace), limits_(limits) {
    watcher_ = startBackgroundThread([this] { quietly("watching over operations", [&] { watch(); }); });
}

SessionLoop::~SessionLoop() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
    }
    wake_.signal();
    changed_.notify_all();
    watcher_.join();
}

bool SessionLoop::run(int stopDescriptor) {
    KernelRequest request; // its memory is used again for the next one
    while (true) {
        switch (next(request, stopDescriptor)) {
        case Received::request: execute(request); break;
        case Received::nothing: break;
        case Received::end: return true;
        case Received::failure: return false;
        }
    }
}

SessionLoop::Received SessionLoop::next(KernelRequest& request, int stopDescriptor) {
    reclaimReading();
    if (errands_.arePending()) {
        runErrand();
        return Received::nothing;
    }
    pollfd polled[] = {{descriptor_, POLLIN, 0}, {stopDescriptor, POLLIN, 0}, {errands_.descriptor(), POLLIN, 0}};
    {
        const std::lock_guard guard(lock_);
        if (!backlog_.empty()) {
            if (poll(polled + 1, 1, 0) > 0)
                return Received::end;
            request = std::move(backlog_.front().request);
            next_ = backlog_.front().about;
            next_.hasWaited = true;
            backlog_.pop_front();
            reportBacklog();
            return Received::request;
        }
    }
    if (idleWork_ != nullptr && idleWork_->isPending() && poll(polled, 3, 0) == 0) {
        workIdly();
        return Received::nothing;
    }
    const auto since = pace_ != nullptr ? Clock::now() : Clock::time_point();
    if (const auto time = waitingTime(); time > Pace::Duration(0)) {
        if (poll(polled + 1, 1, 0) > 0)
            return Received::end;
        if (const Received received = waitAwake(request, since + time); received != Received::nothing) {
            pace_->waited(next_.since - since, false);
            return received;
        }
    }
    if (poll(polled, 3, -1) < 0)
        return errno == EINTR ? Received::nothing : Received::failure;
    if (polled[1].revents != 0)
        return Received::end;
    if (polled[2].revents != 0)
        return Received::nothing;
    const Received received = receiveNext(request);
    if (pace_ != nullptr && received == Received::request)
        pace_->waited(next_.since - since, true);
    return received;
}

SessionLoop::Received SessionLoop::receiveNext(KernelRequest& request) {
    const Received received = receive(request);
    if (received != Received::request)
        return received;
    next_ = {request.unique(), request.thread(), request.isFlush(), Clock::now()};
    if (pace_ != nullptr)
        pace_->arrived(next_.since);
    return received;
}

Pace::Duration SessionLoop::waitingTime() const {
    if (pace_ == nullptr || (idleWork_ != nullptr && idleWork_->isUnderWay()))
        return Pace::Duration(0);
    return pace_->waitingTime();
}

SessionLoop::Received SessionLoop::waitAwake(KernelRequest& request, Clock::time_point end) {
    Received received = Received::nothing;
    do
        received = receiveNext(request);
    while (received == Received::nothing && Clock::now() < end && !errands_.arePending());
    return received;
}

SessionLoop::Received SessionLoop::receive(KernelRequest& request) {
    fuse_buf buffer{};
    buffer.mem = request.memory.release();
    const int result = fuse_session_receive_buf(session_, &buffer);
    request.memory.reset(buffer.mem);
    request.size = result > 0 ? buffer.size : 0;
    if (result > 0)
        return Received::request;
    if (result == -EAGAIN || result == -EINTR)
        return Received::nothing;
    if (result == 0)
        return Received::end; // unmounted
    if (result == -ENOMEM) {
        std::this_thread::sleep_for(outOfMemory);
        return Received::nothing;
    }
    // The executing thread ends with the same failure that the watcher may have met before it.
    if (!std::exchange(failureTold_, true))
        quietly("a line of the log", [&] {
            hostLog().error({"reading from the kernel failed: ", foundation::logPublic(std::strerror(-result))});
        });
    return Received::failure;
}

void SessionLoop::reclaimReading() {
    Guard guard(lock_);
    if (!watcherReads_)
        return;
    wake_.signal();
    changed_.wait(guard, [&] { return !watcherReads_; });
}

void SessionLoop::execute(const KernelRequest& request) {
    if (request.isInterrupt())
        return; // whatever it is about has been answered: nothing else is under way
    if (refuses_) {
        replyErrorDirectly(descriptor_, next_.unique, EIO);
        return;
    }
    begin(next_);
    if (reports_ != nullptr)
        reports_->begin(request, next_.since, next_.hasWaited ? Clock::now() : next_.since);
    fuse_buf buffer{};
    buffer.mem = request.memory.get();
    buffer.size = request.size;
    fuse_session_process_buf(session_, &buffer);
    if (reports_ != nullptr)
        reports_->end();
    finish();
}

void SessionLoop::workIdly() {
    executeOwn([&] { idleWork_->doNext(); });
}

void SessionLoop::runErrand() {
    executeOwn([&] { errands_.runNext(); });
}

// No caller waits for it, but requests that come meanwhile do: should it last, they are the watcher's to read.
template <typename Work>
void SessionLoop::executeOwn(const Work& work) {
    const auto now = Clock::now();
    begin({0, 0, false, now});
    if (reports_ != nullptr)
        reports_->beginIdleWork(now);
    work();
    if (reports_ != nullptr)
        reports_->end();
    finish();
}

void SessionLoop::begin(const Pending& operation) {
    const std::lock_guard guard(lock_);
    current_ = operation;
    busy_ = true;
    ++operation_;
    if (watcherSleeps_) {
        watcherSleeps_ = false;
        changed_.notify_all();
    }
}

void SessionLoop::finish() {
    const std::lock_guard guard(lock_);
    busy_ = false;
}

void SessionLoop::watch() {
    Guard guard(lock_);
    int idle = 0;
    while (!ending_) {
        const std::uint64_t operation = operation_;
        changed_.wait_for(guard, patience, [&] { return ending_; });
        const bool lasts = busy_ && operation_ == operation;
        if (operation_ != operation || busy_)
            idle = 0;
        // Many short operations keep those waiting that were read already, as one long one does.
        if (lasts || (busy_ && !backlog_.empty()))
            takeOver(guard);
        else if (!busy_ && ++idle >= idleRounds) {
            sleepUntilBusy(guard);
            idle = 0;
        }
    }
}

void SessionLoop::sleepUntilBusy(Guard& guard) {
    watcherSleeps_ = true;
    changed_.wait(guard, [&] { return ending_ || !watcherSleeps_; });
    watcherSleeps_ = false;
}

void SessionLoop::takeOver(Guard& guard) {
    const std::uint64_t operation = operation_;
    watcherReads_ = true;
    bool canRead = true;
    while (!ending_ && busy_ && operation_ == operation) {
        guard.unlock();
        // Where there was nothing to read though poll called, one round waits with that descriptor left out: the file
        // system is unmounted or the connection broken, which is for the executing thread to meet when it reads.
        pollfd polled[] = {{canRead ? descriptor_ : -1, POLLIN, 0}, {wake_.number(), POLLIN, 0}};
        poll(polled, 2, static_cast<int>(std::chrono::milliseconds(patience).count()));
        guard.lock();
        const short called = polled[0].revents;
        canRead = called == 0 || ((called & POLLIN) != 0 && readIntoBacklog());
        giveUp();
    }
    wake_.clear();
    watcherReads_ = false;
    changed_.notify_all();
}

bool SessionLoop::readIntoBacklog() {
    KernelRequest request;
    const Received received = receive(request);
    if (received != Received::request)
        return received == Received::nothing;
    if (request.isInterrupt())
        noteInterrupt(request.interruptedUnique());
    else {
        const Pending about{request.unique(), request.thread(), request.isFlush(), Clock::now()};
        try {
            backlog_.push_back({std::move(request), about});
            reportBacklog();
        } catch (const std::bad_alloc&) {
            replyErrorDirectly(descriptor_, about.unique, ENOMEM);
        }
    }
    return true;
}

// One that is not under way any more has had its answer.
void SessionLoop::noteInterrupt(std::uint64_t unique) {
    if (busy_ && current_.unique == unique)
        current_.isInterrupted = true;
    for (Waiting& waiting : backlog_)
        if (waiting.about.unique == unique)
            waiting.about.isInterrupted = true;
}

bool SessionLoop::isCallerDying(const Pending& pending, Clock::time_point now) const {
    const auto lasted = now - pending.since;
    // A file is flushed for a dying process without any word of its death.
    if (lasted < limits_.dying || !(pending.isInterrupted || pending.isFlush))
        return false;
    switch (callers_.fateOf(pending.thread)) {
    case CallerFate::dies: return true;
    case CallerFate::lives: return false;
    case CallerFate::unseen: break;
    }
    return pending.isInterrupted && lasted >= limits_.unseen;
}

int SessionLoop::reasonToGiveUp(const Pending& pending, Clock::time_point now) const {
    if (pending.unique == 0)
        return 0; // nobody's, or answered
    if (refuses_)
        return EIO;
    if (isCallerDying(pending, now))
        return EINTR;
    return longestWait_ && now - std::max(pending.since, limitedSince_) >= *longestWait_ ? EIO : 0;
}

void SessionLoop::limitWaiting(std::optional<std::chrono::milliseconds> limit) {
    const std::lock_guard guard(lock_);
    longestWait_ = limit;
    limitedSince_ = Clock::now();
}

void SessionLoop::giveUp() {
    const Clock::time_point now = Clock::now();
    const auto isAnswered = [&](const Pending& pending) {
        const int reason = reasonToGiveUp(pending, now);
        if (reason != 0)
            replyErrorDirectly(descriptor_, pending.unique, reason);
        return reason != 0;
    };
    if (busy_ && isAnswered(current_))
        current_ = {};
    if (std::erase_if(backlog_, [&](const Waiting& waiting) { return isAnswered(waiting.about); }) > 0)
        reportBacklog();
}

void SessionLoop::reportBacklog() {
    if (reports_ != nullptr)
        reports_->setWaiting(backlog_.size());
}

} // namespace fusehost
