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

/// What the observer, if there is one, is told of one exchange. Used while the request lock is held.
class HelperExchange::Observed {
public:
    Observed(ExchangeObserver* observer, const HelperRequest& request) : observer_(observer), request_(request) {}

    /// Whatever was thrown meanwhile: the answer was none.
    ~Observed() {
        if (began_)
            end(ExchangeEnd::Kind::breach, {});
    }

    Observed(const Observed&) = delete;
    Observed& operator=(const Observed&) = delete;

    void begin(const HelperRequestEncoder::Line& line) {
        if (observer_ == nullptr)
            return;
        observer_->exchangeBegan(request_, line);
        began_ = true;
    }

    void arrived(const LineData& line) {
        if (observer_ == nullptr)
            return;
        observer_->answerArrived();
        line_ = line.get();
        if (!line)
            end(ExchangeEnd::Kind::gone, {});
    }

    void ended(const HelperResponse& response) {
        if (observer_ == nullptr)
            return;
        if (response.id != request_.id || (!response.ok && !response.error))
            end(ExchangeEnd::Kind::breach, {});
        else if (response.ok)
            end(ExchangeEnd::Kind::success, {});
        else
            end(ExchangeEnd::Kind::failure, response.error->code ? *response.error->code : std::string_view());
    }

private:
    void end(ExchangeEnd::Kind kind, std::string_view code) {
        began_ = false;
        observer_->exchangeEnded(request_, {kind, code, line_ != nullptr ? line_->view() : std::string_view()});
    }

    ExchangeObserver* const observer_;
    const HelperRequest& request_;
    const foundation::ByteBuffer* line_ = nullptr; // outlives this object: whoever asks holds it
    bool began_ = false;                           // and has not ended
};

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
HelperExchange::LineData HelperExchange::answerTo(HelperRequest& request, Observed& observed) {
    request.id = takeID();
    const HelperRequestEncoder::Line line = encoder_.encode(request);
    observed.begin(line);
    // A helper that has gone shows in the read below, so the result of the write tells nothing new. One that can answer
    // no more is to do nothing more either, and may have stopped to read.
    (void)requests_.writeUnlessEnded(std::array{line.head, line.payload, line.tail}, answers_);
    LineData answer = readLineData();
    observed.arrived(answer);
    return answer;
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
    return outOfStepStateBeginning + std::to_string(outOfStepSince_);
}

HelperResponse HelperExchange::ask(HelperRequest& request, const HelperResponse::ResultHandler& onResult) {
    std::unique_lock guard(requestLock_);
    HelperResponse response = tellingRequest(request, [&] {
        LineData line;
        Observed observed(observer, request);
        line = answerTo(request, observed);
        if (!line) {
            guard.unlock();
            failAtEnd(request);
        }
        HelperResponse decoded = HelperResponse::decode(line, decoder_, onResult);
        observed.ended(decoded);
        return decoded;
    });
    refuseUnlessAccepted(response, request);
    return response;
}

HelperExchange::PayloadAnswer HelperExchange::askForPayload(HelperRequest& request) {
    return tellingRequest(request, [&] {
        std::unique_lock guard(requestLock_);
        PayloadAnswer answer;
        Observed observed(observer, request);
        answer.line = answerTo(request, observed);
        if (!answer.line) {
            guard.unlock();
            failAtEnd(request);
        }
        answer.response = HelperResponse::decodeTrustingBase64(answer.line, decoder_);
        observed.ended(answer.response);
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
