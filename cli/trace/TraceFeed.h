#pragma once

#include "cli/ExchangeMeter.h"
#include "hosts/fuse/monitor/Monitor.h"

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cli {

/// An exchange that a request of the kernel caused.
struct TracedExchange {
    std::string operation;
    std::chrono::nanoseconds duration{0}; // from when the line was ready to be sent until the answer was there
    std::string error;                    // as ExchangeCounts calls them; empty if there was none
};

/// What was done: a request of the kernel, or something that the host did of its own accord.
struct TracedRequest {
    fusehost::RequestEvent event;
    std::vector<TracedExchange> exchanges; // in the order in which they were made
    bool isReadAhead = false;              // no request: a block that was read before it was wanted
};

/// Is told of each. Called on the thread that executes requests, which it must not hold up.
class TraceSubscriber {
public:
    virtual ~TraceSubscriber() = default;
    virtual void traced(const TracedRequest& request) noexcept = 0;
};

/// Brings together the requests of the kernel and the exchanges that each has caused, while somebody subscribes; costs
/// nothing otherwise.
class TraceFeed final : private fusehost::RequestListener, private kemvi::ExchangeObserver {
public:
    /// Both must live longer.
    TraceFeed(fusehost::Monitor& monitor, ExchangeMeter& exchanges) : monitor_(monitor), meter_(exchanges) {}

    ~TraceFeed() override;
    TraceFeed(const TraceFeed&) = delete;
    TraceFeed& operator=(const TraceFeed&) = delete;

    /// Any thread. A request that is under way when somebody subscribes may lack exchanges.
    void subscribe(TraceSubscriber& subscriber);
    /// When this returns the subscriber is told of nothing any more. It must not call it itself.
    void unsubscribe(TraceSubscriber& subscriber);

private:
    struct Made {
        std::thread::id by;
        TracedExchange exchange;
    };

    void requestEnded(const fusehost::RequestEvent& event) noexcept override;
    void exchangeBegan(const kemvi::HelperRequest& request,
                       const kemvi::HelperRequestEncoder::Line& line) noexcept override;
    void answerArrived() noexcept override;
    void exchangeEnded(const kemvi::HelperRequest& request, const kemvi::ExchangeEnd& end) noexcept override;
    void tell(const TracedRequest& request);
    void tellReadAhead(const TracedExchange& exchange);

    using Clock = std::chrono::steady_clock;

    fusehost::Monitor& monitor_;
    ExchangeMeter& meter_;

    std::mutex subscribing_; // held for all of a change of subscribers; taken before any other

    std::mutex lock_; // guards what follows; taken last
    std::vector<TraceSubscriber*> subscribers_;
    Clock::time_point began_; // the exchange under way
    Clock::time_point arrived_;
    std::vector<Made> made_; // since the last request ended
};

} // namespace cli
