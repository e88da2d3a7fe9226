#include "hosts/fuse/monitor/Monitor.h"

#include <algorithm>

namespace fusehost {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

} // namespace

void Monitor::begin(const Beginning& beginning) noexcept {
    operation_ = beginning.operation;
    since_ = beginning.since;
    if (const auto waited = beginning.started - beginning.since; waited.count() > 0)
        LatencyHistogram::increase(waited_, static_cast<std::uint64_t>(waited.count()));
    board_.post(beginning.operation, beginning.path, beginning.thread, beginning.user, beginning.since);
    // Of this exchange and that of whoever rests one comes first: it sees what is under way, or is seen to rest.
    if (resting_.exchange(false, std::memory_order_acq_rel))
        workBegan_.signal();
}

void Monitor::rest() noexcept {
    workBegan_.clear();
    resting_.exchange(true, std::memory_order_acq_rel);
}

void Monitor::end(Clock::time_point now, const Outcome& outcome) noexcept {
    board_.clear();
    Counters& counters = counters_[static_cast<std::size_t>(operation_)];
    counters.latency.add(now - since_);
    if (operation_ != KernelOperation::idle)
        LatencyHistogram::increase(requests_, 1);
    if (outcome.bytes)
        LatencyHistogram::increase(counters.bytes, *outcome.bytes);
    if (outcome.error > 0)
        LatencyHistogram::increase(counters.errors[std::min(static_cast<std::size_t>(outcome.error), errorCount - 1)],
                                   1);
}

void Monitor::setTree(const TreeGauges& gauges) noexcept {
    nodes_.store(gauges.nodes, relaxed);
    openFiles_.store(gauges.openFiles, relaxed);
    openItems_.store(gauges.openItems, relaxed);
    hiddenFiles_.store(gauges.hiddenFiles, relaxed);
}

OperationCounts Monitor::read(const Counters& counters, KernelOperation operation) {
    OperationCounts counts;
    counts.operation = operation;
    counts.latency = counters.latency.read();
    counts.bytes = counters.bytes.load(relaxed);
    for (std::size_t number = 1; number < errorCount; ++number)
        if (const std::uint64_t count = counters.errors[number].load(relaxed); count > 0)
            counts.errors.emplace(static_cast<int>(number), count);
    return counts;
}

MonitorCounts Monitor::read() const {
    MonitorCounts counts;
    for (std::size_t i = 0; i < kernelOperationCount; ++i) {
        const auto operation = static_cast<KernelOperation>(i);
        if (operation == KernelOperation::idle)
            counts.idleWork = counters_[i].latency.read().sum;
        else if (OperationCounts counted = read(counters_[i], operation); counted.latency.count() > 0)
            counts.operations.push_back(std::move(counted));
    }
    counts.waited = std::chrono::nanoseconds(waited_.load(relaxed));
    counts.tree = {nodes_.load(relaxed), openFiles_.load(relaxed), openItems_.load(relaxed),
                   hiddenFiles_.load(relaxed)};
    counts.waiting = waiting_.load(relaxed);
    return counts;
}

void Monitor::add(RequestListener& listener) {
    const std::lock_guard guard(lock_);
    listeners_.push_back(&listener);
    isListenedTo_ = true;
}

void Monitor::remove(RequestListener& listener) {
    const std::lock_guard guard(lock_);
    std::erase(listeners_, &listener);
    isListenedTo_ = !listeners_.empty();
}

void Monitor::tell(const RequestEvent& event) noexcept {
    const std::lock_guard guard(lock_);
    for (RequestListener* listener : listeners_)
        listener->requestEnded(event);
}

} // namespace fusehost
