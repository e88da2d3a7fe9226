#include "cli/ExchangeMeter.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace cli {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

constexpr std::array<std::string_view, 15> operations{"ping",   "statfs", "readdir", "getattr", "open",
                                                      "read",   "write",  "flush",   "release", "mkdir",
                                                      "unlink", "rename", "chmod",   "utimes",  "other"};

/// The first question to a helper, and asked of none later.
constexpr std::string_view greeting = "ping";

void increase(std::atomic<std::uint64_t>& counter, std::uint64_t by) {
    fusehost::LatencyHistogram::increase(counter, by);
}

/// Codes are the names of errors; what else a helper says there is not for labels.
bool isName(std::string_view code) {
    return std::all_of(code.begin(), code.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    });
}

} // namespace

std::string_view codeOf(const kemvi::ExchangeEnd& end) {
    switch (end.kind) {
    case kemvi::ExchangeEnd::Kind::success: return {};
    case kemvi::ExchangeEnd::Kind::failure: return end.code.empty() ? "none" : end.code;
    case kemvi::ExchangeEnd::Kind::breach: return "protocol";
    case kemvi::ExchangeEnd::Kind::gone: return "gone";
    }
    return {};
}

std::chrono::nanoseconds MeteredExchanges::time() const {
    std::chrono::nanoseconds all{0};
    for (const ExchangeCounts& counts : operations)
        if (counts.operation != greeting)
            all += counts.latency.sum;
    return all;
}

std::size_t ExchangeMeter::Codes::indexOf(std::string_view code) noexcept {
    const std::size_t known = count_.load(relaxed);
    for (std::size_t i = 0; i < known; ++i)
        if (at(i) == code)
            return i;
    if (known == mostCodes || code.size() > longestCode || !isName(code))
        return mostCodes;
    std::memcpy(texts_[known].data(), code.data(), code.size());
    count_.store(known + 1, std::memory_order_release);
    return known;
}

std::size_t ExchangeMeter::indexOf(std::string_view operation) {
    const auto found = std::find(operations.begin(), operations.end() - 1, operation);
    return static_cast<std::size_t>(found - operations.begin());
}

std::string_view ExchangeMeter::nameOf(std::size_t index) {
    static_assert(operations.size() == operationCount);
    return operations[index];
}

void ExchangeMeter::exchangeBegan(const kemvi::HelperRequest& request,
                                  const kemvi::HelperRequestEncoder::Line& line) noexcept {
    increase(sent_, line.head.size() + line.payload.size() + line.tail.size());
    since_.store(Clock::now().time_since_epoch().count(), relaxed);
    operation_.store(indexOf(request.op), std::memory_order_release);
    if (!isListenedTo_.load(relaxed))
        return;
    const std::lock_guard guard(lock_);
    for (Listener& listener : listeners_) {
        listener.wasToldOfBeginning = true;
        listener.observer->exchangeBegan(request, line);
    }
}

void ExchangeMeter::answerArrived() noexcept {
    arrived_ = Clock::now();
    if (!isListenedTo_.load(relaxed))
        return;
    const std::lock_guard guard(lock_);
    for (const Listener& listener : listeners_)
        if (listener.wasToldOfBeginning)
            listener.observer->answerArrived();
}

void ExchangeMeter::exchangeEnded(const kemvi::HelperRequest& request, const kemvi::ExchangeEnd& end) noexcept {
    count(end);
    countHandles(request.op, end);
    operation_.store(operationCount, relaxed);
    if (!isListenedTo_.load(relaxed))
        return;
    const std::lock_guard guard(lock_);
    for (Listener& listener : listeners_)
        if (std::exchange(listener.wasToldOfBeginning, false))
            listener.observer->exchangeEnded(request, end);
}

void ExchangeMeter::count(const kemvi::ExchangeEnd& end) {
    const std::size_t operation = std::min(operation_.load(relaxed), operationCount - 1);
    Counters& counters = counters_[operation];
    counters.latency.add(arrived_ - Clock::time_point(Clock::duration(since_.load(relaxed))));
    if (!end.answer.empty())
        increase(received_, end.answer.size() + 1);
    if (end.kind != kemvi::ExchangeEnd::Kind::success)
        increase(counters.errors[codes_.indexOf(codeOf(end))], 1);
}

void ExchangeMeter::countHandles(std::string_view operation, const kemvi::ExchangeEnd& end) {
    const std::uint64_t open = handles_.load(relaxed);
    if (operation == "open" && end.kind == kemvi::ExchangeEnd::Kind::success)
        handles_.store(open + 1, relaxed);
    else if (operation == "release" && open > 0) // whatever came of it, it will not be asked again
        handles_.store(open - 1, relaxed);
    else if (operation == greeting)
        handles_.store(0, relaxed);
}

ExchangeCounts ExchangeMeter::read(std::size_t operation) const {
    const Counters& counters = counters_[operation];
    ExchangeCounts counts{std::string(nameOf(operation)), counters.latency.read(), {}};
    const auto add = [&](std::string_view code, std::size_t index) {
        if (const std::uint64_t count = counters.errors[index].load(relaxed); count > 0)
            counts.errors[std::string(code)] += count;
    };
    for (std::size_t i = 0; i < codes_.count(); ++i)
        add(codes_.at(i), i);
    add("other", mostCodes);
    return counts;
}

MeteredExchanges ExchangeMeter::read() const {
    MeteredExchanges metered;
    for (std::size_t i = 0; i < operationCount; ++i)
        if (ExchangeCounts counts = read(i); counts.latency.count() > 0)
            metered.operations.push_back(std::move(counts));
    metered.bytesSent = sent_.load(relaxed);
    metered.bytesReceived = received_.load(relaxed);
    metered.openHandles = handles_.load(relaxed);
    return metered;
}

std::optional<ExchangeUnderWay> ExchangeMeter::underWay() const {
    const std::size_t operation = operation_.load(std::memory_order_acquire);
    if (operation == operationCount)
        return std::nullopt;
    return ExchangeUnderWay{nameOf(operation), Clock::time_point(Clock::duration(since_.load(relaxed)))};
}

void ExchangeMeter::add(kemvi::ExchangeObserver& listener) {
    const std::lock_guard guard(lock_);
    listeners_.push_back({&listener, false});
    isListenedTo_ = true;
}

void ExchangeMeter::remove(kemvi::ExchangeObserver& listener) {
    const std::lock_guard guard(lock_);
    std::erase_if(listeners_, [&](const Listener& known) { return known.observer == &listener; });
    isListenedTo_ = !listeners_.empty();
}

} // namespace cli
