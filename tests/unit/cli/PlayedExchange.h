#pragma once

#include "helper/ExchangeObserver.h"

#include <string_view>

namespace cli {

/// Tells of one exchange as HelperExchange does: a request line of 11 bytes and an answer of 6.
inline void exchange(kemvi::ExchangeObserver& observer, const char* op,
                     kemvi::ExchangeEnd::Kind kind = kemvi::ExchangeEnd::Kind::success, std::string_view code = {}) {
    kemvi::HelperRequest request;
    request.op = op;
    observer.exchangeBegan(request, {"0123456789", "", "\n"});
    observer.answerArrived();
    observer.exchangeEnded(request, {kind, code, kind == kemvi::ExchangeEnd::Kind::gone ? "" : "01234"});
}

} // namespace cli
