#include "cli/record/RecordTap.h"

#include "cli/trace/TraceLine.h"
#include "hosts/fuse/calls/Quietly.h"

#include <optional>
#include <string_view>
#include <utility>

namespace cli {

RecordTap::RecordTap(ExchangeMeter& exchanges, TraceFeed& requests, std::unique_ptr<recording::Writer> writer)
    : exchanges_(exchanges), requests_(requests), writer_(std::move(writer)) {
    exchanges_.add(*this);
    requests_.subscribe(*this);
}

RecordTap::~RecordTap() {
    requests_.unsubscribe(*this);
    exchanges_.remove(*this);
}

void RecordTap::exchangeBegan(const kemvi::HelperRequest&, const kemvi::HelperRequestEncoder::Line& line) noexcept {
    fusehost::quietly("recording a request", [&] {
        line_.assign(line.head).append(line.payload).append(line.tail);
        began_ = arrived_ = Clock::now();
    });
}

void RecordTap::answerArrived() noexcept {
    arrived_ = Clock::now();
}

void RecordTap::exchangeEnded(const kemvi::HelperRequest&, const kemvi::ExchangeEnd& end) noexcept {
    fusehost::quietly("recording an answer", [&] {
        const bool answered = end.kind != kemvi::ExchangeEnd::Kind::gone;
        writer_->exchange(began_, arrived_ - began_, line_,
                          answered ? std::optional<std::string_view>(end.answer) : std::nullopt);
    });
}

void RecordTap::traced(const TracedRequest& request) noexcept {
    fusehost::quietly("recording a request of the kernel",
                      [&] { writer_->kernelRequest(traceMembers(request).json()); });
}

} // namespace cli
