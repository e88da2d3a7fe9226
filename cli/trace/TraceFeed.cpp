#include "cli/trace/TraceFeed.h"

#include "hosts/fuse/calls/Quietly.h"

#include <algorithm>
#include <utility>

namespace cli {

namespace {

std::chrono::system_clock::time_point timeBefore(std::chrono::nanoseconds passed) {
    return std::chrono::system_clock::now() - std::chrono::duration_cast<std::chrono::system_clock::duration>(passed);
}

} // namespace

TraceFeed::~TraceFeed() {
    const std::lock_guard guard(subscribing_);
    if (subscribers_.empty())
        return;
    monitor_.remove(*this);
    meter_.remove(*this);
}

void TraceFeed::subscribe(TraceSubscriber& subscriber) {
    const std::lock_guard subscribing(subscribing_);
    bool isFirst = false;
    {
        const std::lock_guard guard(lock_);
        isFirst = subscribers_.empty();
        subscribers_.push_back(&subscriber);
        if (isFirst)
            made_.clear();
    }
    if (!isFirst)
        return;
    meter_.add(*this);
    monitor_.add(*this);
}

void TraceFeed::unsubscribe(TraceSubscriber& subscriber) {
    const std::lock_guard subscribing(subscribing_);
    bool wasLast = false;
    {
        const std::lock_guard guard(lock_);
        wasLast = std::erase(subscribers_, &subscriber) > 0 && subscribers_.empty();
    }
    if (!wasLast)
        return;
    monitor_.remove(*this);
    meter_.remove(*this);
}

void TraceFeed::exchangeBegan(const kemvi::HelperRequest&, const kemvi::HelperRequestEncoder::Line&) noexcept {
    const std::lock_guard guard(lock_);
    began_ = Clock::now();
}

void TraceFeed::answerArrived() noexcept {
    const std::lock_guard guard(lock_);
    arrived_ = Clock::now();
}

void TraceFeed::exchangeEnded(const kemvi::HelperRequest& request, const kemvi::ExchangeEnd& end) noexcept {
    fusehost::quietly("tracing an exchange", [&] {
        const std::lock_guard guard(lock_);
        made_.push_back({std::this_thread::get_id(), {request.op, arrived_ - began_, std::string(codeOf(end))}});
    });
}

void TraceFeed::requestEnded(const fusehost::RequestEvent& event) noexcept {
    fusehost::quietly("tracing a request", [&] {
        const std::lock_guard guard(lock_);
        TracedRequest request{event, {}, false};
        for (Made& made : std::exchange(made_, {})) {
            if (made.by == std::this_thread::get_id())
                request.exchanges.push_back(std::move(made.exchange));
            else
                tellReadAhead(made.exchange);
        }
        tell(request);
    });
}

// Needs the lock.
void TraceFeed::tell(const TracedRequest& request) {
    for (TraceSubscriber* subscriber : subscribers_)
        subscriber->traced(request);
}

// Needs the lock. Told with the request that comes next, which mostly is the one that wanted the block.
void TraceFeed::tellReadAhead(const TracedExchange& exchange) {
    TracedRequest request{{}, {exchange}, true};
    request.event.operation = fusehost::KernelOperation::idle;
    request.event.duration = exchange.duration;
    request.event.began = timeBefore(exchange.duration);
    tell(request);
}

} // namespace cli
