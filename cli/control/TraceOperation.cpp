#include "cli/control/TraceOperation.h"

#include "cli/trace/TraceFilter.h"
#include "cli/trace/TraceLine.h"

#include <memory>
#include <utility>

namespace cli {

namespace {

/// One peer who watches.
class Watching final : public TraceSubscriber {
public:
    explicit Watching(TraceFilter filter) : filter_(std::move(filter)) {}

    /// Before it is subscribed.
    void sendTo(std::shared_ptr<control::LineStream> stream) { stream_ = std::move(stream); }

    void traced(const TracedRequest& request) noexcept override {
        try {
            if (stream_->isWanted() && filter_.passes(request))
                stream_->push(traceMembers(request).json());
        } catch (const std::exception&) {
            // There was no memory for it: one line is missing, and the mount goes on.
        }
    }

private:
    const TraceFilter filter_;
    std::shared_ptr<control::LineStream> stream_;
};

} // namespace

void addTraceOperation(control::ControlServer& server, TraceFeed& feed) {
    server.handle("trace", TraceFilter::members(), [&feed](const control::Request& request, control::Reply& reply) {
        const auto watching = std::make_shared<Watching>(TraceFilter::of(request));
        watching->sendTo(reply.stream({}, [&feed, watching] { feed.unsubscribe(*watching); }));
        feed.subscribe(*watching);
    });
}

} // namespace cli
