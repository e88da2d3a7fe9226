#pragma once

#include "hosts/fuse/monitor/KernelOperation.h"
#include "hosts/fuse/monitor/LatencyHistogram.h"
#include "hosts/fuse/monitor/RequestListener.h"
#include "hosts/fuse/monitor/TreeGauges.h"
#include "hosts/fuse/monitor/UnderWay.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

namespace fusehost {

/// What was counted of one kind of request.
struct OperationCounts {
    KernelOperation operation = KernelOperation::other;
    LatencyCounts latency; // from when a request was read until it was answered
    std::uint64_t bytes = 0;
    std::map<int, std::uint64_t> errors; // by errno value
};

struct MonitorCounts {
    std::vector<OperationCounts> operations; // those of which there was one, without idle work
    std::chrono::nanoseconds idleWork{0};    // what was done while there was no request
    std::chrono::nanoseconds waited{0};      // what requests have waited for those before them, after they were read
    TreeGauges tree;
    std::size_t waiting = 0; // requests that were read and wait for the one under way
};

/// What a mount is doing and has done. One thread executes requests and tells of each; any thread reads, at any time,
/// without a lock that the executing thread would wait for, or be waited for with: what is read is right also while it
/// hangs.
class Monitor {
public:
    using Clock = std::chrono::steady_clock;

    // Any thread
    std::optional<RequestUnderWay> underWay() const { return board_.read(); }

    /// Requests that have been executed.
    std::uint64_t requests() const noexcept { return requests_.load(std::memory_order_relaxed); }

    MonitorCounts read() const;

    /// From here on the listener is told of each request that begins. When `remove` returns it is told of none any
    /// more. Not to be called by a listener.
    void add(RequestListener& listener);
    void remove(RequestListener& listener);

    /// One load.
    bool isListenedTo() const noexcept { return isListenedTo_.load(std::memory_order_relaxed); }

    /// For one thread that has nothing to look at: from here on `workBegan` becomes readable with the next request that
    /// begins. One may have begun just before, so `underWay` is to be asked after this.
    void rest() noexcept;

    const EventDescriptor& workBegan() const noexcept { return workBegan_; }

    // The executing thread

    struct Beginning {
        KernelOperation operation = KernelOperation::other;
        std::string_view path;
        std::uint32_t thread = 0;
        std::uint32_t user = 0;
        Clock::time_point since;   // it was read
        Clock::time_point started; // its execution began
    };

    struct Outcome {
        int error = 0; // an errno value
        std::optional<std::uint64_t> bytes;
    };

    void begin(const Beginning& beginning) noexcept;
    /// Ends what was begun last.
    void end(Clock::time_point now, const Outcome& outcome) noexcept;
    void setTree(const TreeGauges& gauges) noexcept;
    void tell(const RequestEvent& event) noexcept;

    /// Whoever has requests wait, one thread at a time.
    void setWaiting(std::size_t requests) noexcept { waiting_.store(requests, std::memory_order_relaxed); }

private:
    using Counter = std::atomic<std::uint64_t>;

    // The kernel's numbers end at 133; one beyond is counted as the last.
    static constexpr std::size_t errorCount = 134;

    struct Counters {
        LatencyHistogram latency;
        Counter bytes{0};
        std::array<Counter, errorCount> errors{};
    };

    static OperationCounts read(const Counters& counters, KernelOperation operation);

    UnderWayBoard board_;
    std::array<Counters, kernelOperationCount> counters_;
    Counter requests_{0};
    Counter waited_{0}; // nanoseconds
    std::atomic<std::size_t> waiting_{0};
    std::atomic<std::size_t> nodes_{0};
    std::atomic<std::size_t> openFiles_{0};
    std::atomic<std::size_t> openItems_{0};
    std::atomic<std::size_t> hiddenFiles_{0};

    // The executing thread's own
    KernelOperation operation_ = KernelOperation::other;
    Clock::time_point since_;

    EventDescriptor workBegan_;
    std::atomic<bool> resting_{false};
    std::atomic<bool> isListenedTo_{false};
    std::mutex lock_; // guards the listeners; held while they are told
    std::vector<RequestListener*> listeners_;
};

} // namespace fusehost
