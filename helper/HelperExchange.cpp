#include "helper/HelperExchange.h"

#include "foundation/Log.h"
#include "helper/AdapterError.h"
#include "helper/RequestOrigin.h"

#include <array>
#include <limits>
#include <utility>

namespace kemvi {
namespace {

template <typename Failure>
[[noreturn]] void throwWith(foundation::ErrorOrigin origin, Failure error) {
    error.setOrigin(std::move(origin));
    throw error;
}

foundation::ErrorOrigin inState(std::string state) {
    foundation::ErrorOrigin origin;
    origin.state = std::move(state);
    return origin;
}

foundation::ErrorOrigin withCode(std::string code) {
    foundation::ErrorOrigin origin;
    origin.code = std::move(code);
    return origin;
}

} // namespace

HelperExchange::HelperExchange(foundation::FileHandle& requests, foundation::FileHandle& answers)
    : requests_(requests), answers_(answers), buffers_(std::make_shared<BufferPool>()) {}

// Needs requestLock_.
std::string HelperExchange::takeID() {
    std::string id = std::to_string(nextID_);
    if (nextID_ == std::numeric_limits<std::int64_t>::max())
        foundation::fatalError("the request counter has no numbers left");
    ++nextID_;
    return id;
}

// Needs requestLock_. Null at the end of the helper's output.
HelperExchange::LineData HelperExchange::readLineData() {
    std::shared_ptr<foundation::ByteBuffer> line = buffers_->take();
    return answers_.readLine(*line) ? std::move(line) : nullptr;
}

// Needs requestLock_. Null at the end of the helper's output.
HelperExchange::LineData HelperExchange::answerTo(HelperRequest& request) {
    request.id = takeID();
    const HelperRequestEncoder::Line line = encoder_.encode(request);
    // A helper that has gone shows in the read below, so the result of the write tells nothing new. One that can answer
    // no more is to do nothing more either, and may have stopped to read.
    (void)requests_.writeUnlessEnded(std::array{line.head, line.payload, line.tail}, answers_);
    return readLineData();
}

void HelperExchange::failAtEnd(const HelperRequest& request) {
    if (onEnd)
        onEnd(request);
    throwWith(inState(helperGoneState), AdapterError::protocolError("helper closed stdout"));
}

// What the helper refuses is of everyday use (a name that is not there), so it is thrown once, with all that is known
// of it.
void HelperExchange::refuseUnlessAccepted(const HelperResponse& response, const HelperRequest& request) {
    if (response.id != request.id)
        throwWith(
            withRequest(request, inState(outOfStepState(request.id))),
            AdapterError::protocolError("response id " + response.id + " did not match request id " + request.id));
    if (!response.ok && response.error)
        throwWith(withRequest(request, withCode(response.error->code.value_or(""))),
                  foundation::NSErrorException(response.error->posixError()));
    if (!response.ok)
        throwWith(withRequest(request, {}), AdapterError::protocolError("unknown helper error"));
}

// Once answers are out of step with requests they stay so. Threads that get here at once may count one state as two.
std::string HelperExchange::outOfStepState(const std::string& id) {
    const std::int64_t number = std::stoll(id);
    if (lastOutOfStep_.exchange(number) != number - 1)
        outOfStepSince_ = number;
    return "answers are out of step since request " + std::to_string(outOfStepSince_);
}

HelperResponse HelperExchange::ask(HelperRequest& request, const HelperResponse::ResultHandler& onResult) {
    std::unique_lock guard(requestLock_);
    HelperResponse response = tellingRequest(request, [&] {
        const LineData line = answerTo(request);
        if (!line) {
            guard.unlock();
            failAtEnd(request);
        }
        return HelperResponse::decode(line, decoder_, onResult);
    });
    refuseUnlessAccepted(response, request);
    return response;
}

HelperExchange::PayloadAnswer HelperExchange::askForPayload(HelperRequest& request) {
    return tellingRequest(request, [&] {
        std::unique_lock guard(requestLock_);
        PayloadAnswer answer;
        answer.line = answerTo(request);
        if (!answer.line) {
            guard.unlock();
            failAtEnd(request);
        }
        answer.response = HelperResponse::decodeTrustingBase64(answer.line, decoder_);
        answer.isWanted =
            answer.response.id == request.id && answer.response.ok && answer.response.dataBase64.has_value();
        return answer;
    });
}

HelperResponse HelperExchange::acceptedAnswer(const HelperRequest& request, const PayloadAnswer& answer) {
    foundation::JSONReader reader;
    HelperResponse response = tellingRequest(request, [&] { return HelperResponse::decode(answer.line, reader); });
    refuseUnlessAccepted(response, request);
    return response;
}

} // namespace kemvi
