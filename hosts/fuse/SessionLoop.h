#pragma once

#include "hosts/fuse/IdleWork.h"
#include "hosts/fuse/KernelRequest.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <thread>

struct fuse_session;

namespace fusehost {

/// Reads the kernel's requests and executes them one after the other, on the thread that calls `run`. That is the
/// fastest way with a helper that answers one request at a time, and keeps the file tree free of locks.
///
/// A helper that does not answer must not make its callers unkillable. So a second thread, the watcher, looks after an
/// operation that lasts: it takes over reading, puts new requests into a backlog, and answers EINTR to those whose
/// callers were interrupted. The executing thread finishes the operation whenever the helper answers, its late reply
/// is refused by the kernel, and it goes on with the backlog.
class SessionLoop {
public:
    /// `descriptor` is the session's connection, non-blocking; `stopDescriptor` an eventfd that becomes readable when
    /// the loop is to end. `idleWork` is done between requests; it may be null. All must outlive the loop.
    SessionLoop(fuse_session* session, int descriptor, int stopDescriptor, IdleWork* idleWork = nullptr);
    ~SessionLoop();
    SessionLoop(const SessionLoop&) = delete;
    SessionLoop& operator=(const SessionLoop&) = delete;

    /// Serves until the file system is unmounted or a stop is asked for. False if the connection failed.
    bool run();

private:
    using Clock = std::chrono::steady_clock;
    using Guard = std::unique_lock<std::mutex>;

    /// A request with what must be known of it while it waits or is executed.
    struct Pending {
        std::uint64_t unique = 0;
        std::uint32_t thread = 0;
        bool isFlush = false;
        Clock::time_point since;
    };

    struct Waiting {
        KernelRequest request;
        Pending about;
    };

    enum class Received { request, nothing, end, failure };

    // On the executing thread
    Received next(KernelRequest& request);
    void reclaimReading();
    void execute(const KernelRequest& request);
    /// Opens and closes the watcher's view of an operation.
    void begin(const Pending& operation);
    void finish();
    void workIdly();
    Received receive(KernelRequest& request);

    // On the watcher
    void watch();
    void sleepUntilBusy(Guard& guard);
    void takeOver(Guard& guard, std::uint64_t operation);
    /// False if the connection has ended or failed.
    bool readIntoBacklog();
    void answerInterrupted();
    bool mustAnswer(const Pending& pending, Clock::time_point now);

    fuse_session* const session_;
    const int descriptor_;
    const int stopDescriptor_;
    IdleWork* const idleWork_;
    Clock::time_point since_;  // when the request to be executed was read; the executing thread's own
    bool failureTold_ = false; // that reading fails is in the log; belongs to the thread that reads
    const int wakeDescriptor_; // eventfd by which the executing thread ends the watcher's poll

    std::mutex lock_; // guards everything below
    std::condition_variable changed_;
    bool ending_ = false;
    bool busy_ = false;           // an operation is being executed
    bool watcherSleeps_ = false;  // the watcher must be woken when an operation starts
    bool watcherReads_ = false;   // the watcher alone reads from the kernel
    std::uint64_t operation_ = 0; // counts executed operations
    Pending current_;             // valid while busy_
    std::deque<Waiting> backlog_;
    std::set<std::uint64_t> interrupted_; // unique numbers of requests whose callers were interrupted

    std::thread watcher_;
};

} // namespace fusehost
