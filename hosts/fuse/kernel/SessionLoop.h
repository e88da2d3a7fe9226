#pragma once

#include "hosts/fuse/kernel/Callers.h"
#include "hosts/fuse/kernel/Errands.h"
#include "hosts/fuse/kernel/KernelRequest.h"
#include "hosts/fuse/kernel/RequestReports.h"
#include "hosts/fuse/placement/Pace.h"
#include "hosts/fuse/support/EventDescriptor.h"
#include "hosts/fuse/tree/IdleWork.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

struct fuse_session;

namespace fusehost {

/// Reads the kernel's requests and executes them one after the other, on the thread that calls `run`. That is the
/// fastest way with a helper that answers one request at a time, and keeps the file tree free of locks.
///
/// A helper that does not answer must not make its callers unkillable. So a second thread, the watcher, looks after an
/// operation that lasts: it takes over reading, puts new requests into a backlog, and answers EINTR to those whose
/// callers are about to die. The executing thread finishes the operation whenever the helper answers, its late reply
/// is refused by the kernel, and it goes on with the backlog.
///
/// A signal that its program survives ends no wait: the work would be done all the same, and a program that tries again
/// would find it done. The kernel tells of a signal once per request, so a request of which it told is looked at for as
/// long as it lasts: a deadly signal may follow one that is handled.
class SessionLoop {
public:
    /// When a request is given up for a caller's sake.
    struct Limits {
        /// Within a second a user who pressed Ctrl-C must be obeyed; what is done sooner needs no giving up.
        std::chrono::milliseconds dying{500};
        /// Of a caller that cannot be seen it is not known whether a signal will end it. Giving up breaks the operation
        /// if it lives, waiting keeps it if it dies: so, only when the helper hangs by all appearances.
        std::chrono::milliseconds unseen{10'000};
    };

    /// `descriptor` is the session's connection, non-blocking. `idleWork` is done between requests; `pace` is told of
    /// each and says how long to wait awake for the next. Either may be null. All must outlive the loop.
    SessionLoop(fuse_session* session, int descriptor, const Callers& callers, IdleWork* idleWork, Pace* pace,
                Limits limits);

    SessionLoop(fuse_session* session, int descriptor, const Callers& callers, IdleWork* idleWork, Pace* pace)
        : SessionLoop(session, descriptor, callers, idleWork, pace, Limits()) {}

    ~SessionLoop();
    SessionLoop(const SessionLoop&) = delete;
    SessionLoop& operator=(const SessionLoop&) = delete;

    /// From here on the reports are told what is executed; they must outlive the loop. Before `run`.
    void reportTo(RequestReports& reports) { reports_ = &reports; }

    /// Serves until the file system is unmounted or a stop is asked for by making `stopDescriptor`, an eventfd,
    /// readable. False if the connection failed. May be called again after a stop.
    bool run(int stopDescriptor);

    /// From now on every request fails with EIO, those that wait included; nothing more is asked of the helper. For an
    /// end that nothing must hold up. Any thread.
    void refuse() noexcept { refuses_ = true; }

    /// Has the errand run on the executing thread between two requests, while `run` runs: at once if it waits, else
    /// when the operation in hand is done. Destroyed with the loop if it never comes to that. Any thread.
    void hand(Errands::Errand errand) { errands_.add(std::move(errand)); }

    /// From now on a request, that under way included, fails with EIO when it has waited so long: from this call on, or
    /// since it came. Nothing: no longer so. Any thread.
    void limitWaiting(std::optional<std::chrono::milliseconds> limit);

private:
    using Clock = std::chrono::steady_clock;
    using Guard = std::unique_lock<std::mutex>;

    /// A request with what must be known of it while it waits or is executed.
    struct Pending {
        std::uint64_t unique = 0;
        std::uint32_t thread = 0;
        bool isFlush = false;
        Clock::time_point since;
        bool isInterrupted = false; // its caller has got a signal
        bool hasWaited = false;     // in the backlog
    };

    struct Waiting {
        KernelRequest request;
        Pending about;
    };

    enum class Received { request, nothing, end, failure };

    // On the executing thread
    Received next(KernelRequest& request, int stopDescriptor);
    /// Reads the next request, of which it is known that it comes soon or is there.
    Received receiveNext(KernelRequest& request);
    /// How long to look for the next request instead of sleeping. Not at all while the volume is asked for something
    /// beforehand: whoever answers that may need this processor.
    Pace::Duration waitingTime() const;
    /// Looks for the next request until then instead of sleeping, since to be woken takes a while.
    Received waitAwake(KernelRequest& request, Clock::time_point end);
    void reclaimReading();
    void execute(const KernelRequest& request);
    /// Opens and closes the watcher's view of an operation.
    void begin(const Pending& operation);
    void finish();
    void workIdly();
    void runErrand();
    /// What the host does of its own accord.
    template <typename Work>
    void executeOwn(const Work& work);
    Received receive(KernelRequest& request);

    // On the watcher
    void watch();
    void sleepUntilBusy(Guard& guard);
    void takeOver(Guard& guard);
    /// False if the connection has ended or failed.
    bool readIntoBacklog();
    void noteInterrupt(std::uint64_t unique);
    void giveUp();
    /// Tells how many wait. Needs the lock.
    void reportBacklog();
    /// The errno value with which a request is given up; 0 if it is not.
    int reasonToGiveUp(const Pending& pending, Clock::time_point now) const;
    bool isCallerDying(const Pending& pending, Clock::time_point now) const;

    fuse_session* const session_;
    const int descriptor_;
    const Callers& callers_;
    IdleWork* const idleWork_;
    Pace* const pace_;
    const Limits limits_;
    RequestReports* reports_ = nullptr; // or who is told of what is executed
    Pending next_;                      // about the request to be executed; the executing thread's own
    bool failureTold_ = false;          // that reading fails is in the log; belongs to the thread that reads
    EventDescriptor wake_;              // by which the executing thread ends the watcher's poll
    std::atomic<bool> refuses_{false};
    Errands errands_;

    std::mutex lock_; // guards everything below
    std::condition_variable changed_;
    bool ending_ = false;
    bool busy_ = false;           // an operation is being executed
    bool watcherSleeps_ = false;  // the watcher must be woken when an operation starts
    bool watcherReads_ = false;   // the watcher alone reads from the kernel
    std::uint64_t operation_ = 0; // counts executed operations
    Pending current_;             // valid while busy_
    std::deque<Waiting> backlog_;
    std::optional<std::chrono::milliseconds> longestWait_;
    Clock::time_point limitedSince_; // valid where there is a longest wait

    std::thread watcher_;
};

} // namespace fusehost
