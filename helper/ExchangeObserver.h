#pragma once

#include "helper/HelperRequest.h"

#include <string_view>

namespace kemvi {

/// How an exchange ended.
struct ExchangeEnd {
    enum class Kind {
        success, // the helper did what was asked. Whether a payload is valid base64 shows later
        failure, // the helper answered that it could not
        breach,  // what came is no answer to the request
        gone     // the helper has closed its output
    };

    Kind kind = Kind::breach;
    std::string_view code;   // of a failure, as the helper calls it ("ENOENT"); may be empty, or any text
    std::string_view answer; // the whole line, byte 10 excluded; empty if there was none
};

/// Is told of every exchange with a helper, by the thread that asks and while it holds the conversation: of one
/// conversation one exchange at a time. Whoever loads volumes one after the other may have two conversations end at
/// once. All views are valid only during the call. Must return soon, throw nothing, and ask the helper nothing.
class ExchangeObserver {
public:
    virtual ~ExchangeObserver() = default;

    /// The request is about to be sent, as this line.
    virtual void exchangeBegan(const HelperRequest& request, const HelperRequestEncoder::Line& line) noexcept = 0;

    /// The answer has arrived, or the end of the helper's output; what it says is not known yet.
    virtual void answerArrived() noexcept = 0;

    /// Once for each that began.
    virtual void exchangeEnded(const HelperRequest& request, const ExchangeEnd& end) noexcept = 0;
};

} // namespace kemvi
