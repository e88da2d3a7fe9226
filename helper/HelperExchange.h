#pragma once

#include "foundation/FileHandle.h"
#include "foundation/JSON.h"
#include "helper/BufferPool.h"
#include "helper/ExchangeObserver.h"
#include "helper/HelperRequest.h"
#include "helper/HelperResponse.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace kemvi {

/// ErrorOrigin::state of every error after the helper has closed its output.
inline constexpr const char* helperGoneState = "the helper's output has ended";

/// What ErrorOrigin::state begins with when another request's answer was read: from there on nobody knows which answer
/// belongs to which request.
inline constexpr const char* outOfStepStateBeginning = "answers are out of step since request ";

/// The conversation with one helper: one request line out, one answer line back, strictly one after the other. Knows
/// nothing of what is asked. What belongs to one conversation and to no other is here: the numbers of the requests, and
/// whether answers are out of step with them.
///
/// Any thread may ask; those that ask at once queue, until the helper has answered and without a time limit. After any
/// error the next may ask. Once the helper has closed its output nothing more is sent to it.
///
/// Throws: AdapterError::protocolError for an answer that breaks the protocol ("helper closed stdout" once the helper
/// is gone), NSErrorException with the POSIX error for a failure that the helper reports, foundation::DecodingError for
/// a line that is not a response, foundation::EncodingError for a path that is not UTF-8. Every error says of which
/// request it is (its origin).
class HelperExchange {
public:
    /// Requests are written to the one, answers read from the other; both must outlive this object.
    HelperExchange(foundation::FileHandle& requests, foundation::FileHandle& answers);
    HelperExchange(const HelperExchange&) = delete;
    HelperExchange& operator=(const HelperExchange&) = delete;

    /// Called with the request that meets the end of the helper's output, each time one does, before it fails. No lock
    /// is held then. To be set before the first exchange.
    std::function<void(const HelperRequest& request)> onEnd;

    /// Who is told of every exchange; null: nobody. To be set before the first exchange.
    ExchangeObserver* observer = nullptr;

    /// Numbers the request, sends it and returns the helper's answer, which is a success.
    HelperResponse ask(HelperRequest& request, const HelperResponse::ResultHandler& onResult = {});

    /// An answer whose payload has not been looked at.
    struct PayloadAnswer {
        std::shared_ptr<const foundation::ByteBuffer> line;
        HelperResponse response; // to be believed only if its payload turns out to be valid base64
        bool isWanted = false;   // the response, if it is to be believed, is a success with a payload
    };

    /// The same for a request that is answered with a payload. The payload is the caller's to decode, while the helper
    /// already works for others; if that fails, or the answer is not what was wanted, `acceptedAnswer` tells why.
    PayloadAnswer askForPayload(HelperRequest& request);

    /// Reads all of the answer to this request. Throws whatever is wrong with it as an answer.
    HelperResponse acceptedAnswer(const HelperRequest& request, const PayloadAnswer& answer);

    /// Memory for a payload, kept from one request to another.
    std::shared_ptr<foundation::ByteBuffer> takeBuffer() { return buffers_->take(); }

private:
    using LineData = std::shared_ptr<const foundation::ByteBuffer>;

    class Observed;

    std::string takeID();
    LineData answerTo(HelperRequest& request, Observed& observed);
    LineData readLineData();
    [[noreturn]] void failAtEnd(const HelperRequest& request);
    void refuseUnlessAccepted(const HelperResponse& response, const HelperRequest& request);
    std::string outOfStepState(const std::string& id);

    foundation::FileHandle& requests_;
    foundation::FileHandle& answers_;
    const std::shared_ptr<BufferPool> buffers_;   // line and payload memory; has a lock of its own, taken last
    std::atomic<std::int64_t> lastOutOfStep_{-1}; // the last request that another one's answer was read for
    std::atomic<std::int64_t> outOfStepSince_{0}; // the first of those in a row; for the log alone
    std::mutex requestLock_;                      // held for the whole of one exchange; guards what follows
    std::int64_t nextID_ = 1;
    HelperRequestEncoder encoder_;
    foundation::JSONReader decoder_;
};

} // namespace kemvi
