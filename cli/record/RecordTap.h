#pragma once

#include "cli/ExchangeMeter.h"
#include "cli/trace/TraceFeed.h"
#include "recording/Writer.h"

#include <chrono>
#include <memory>
#include <string>

namespace cli {

/// Hands everything that a mount is asked and asks to the writer of a recording, from its making to its end.
class RecordTap final : private kemvi::ExchangeObserver, private TraceSubscriber {
public:
    /// All but the writer must live longer. Any thread may make and end it.
    RecordTap(ExchangeMeter& exchanges, TraceFeed& requests, std::unique_ptr<recording::Writer> writer);
    /// Closes the recording.
    ~RecordTap() override;
    RecordTap(const RecordTap&) = delete;
    RecordTap& operator=(const RecordTap&) = delete;

private:
    using Clock = recording::Writer::Clock;

    void exchangeBegan(const kemvi::HelperRequest& request,
                       const kemvi::HelperRequestEncoder::Line& line) noexcept override;
    void answerArrived() noexcept override;
    void exchangeEnded(const kemvi::HelperRequest& request, const kemvi::ExchangeEnd& end) noexcept override;
    void traced(const TracedRequest& request) noexcept override;

    ExchangeMeter& exchanges_;
    TraceFeed& requests_;
    const std::unique_ptr<recording::Writer> writer_;

    // Of the exchange under way: there is one at a time.
    std::string line_;
    Clock::time_point began_;
    Clock::time_point arrived_;
};

} // namespace cli
