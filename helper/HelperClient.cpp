#include "helper/HelperClient.h"

#include <utility>

namespace kemvi {

HelperClient::HelperClient(std::string helperPath, std::map<std::string, std::string> environment)
    : HelperClient(std::move(helperPath), std::move(environment), nullptr) {}

HelperClient::HelperClient(std::string helperPath, std::map<std::string, std::string> environment,
                           HelperObserver* observer, ExchangeObserver* exchanges)
    : process_(std::move(helperPath), std::move(environment)),
      exchange_(process_.input().fileHandleForWriting(), process_.output().fileHandleForReading()),
      observer_(observer) {
    exchange_.observer = exchanges;
    exchange_.onEnd = [this](const HelperRequest& request) { tellEnd(request.op); };
}

HelperClient::~HelperClient() = default;

void HelperClient::start() {
    process_.start();
    if (observer_ == nullptr)
        return;
    observer_->helperStarted(process_.child());
    endToTell_ = true;
}

void HelperClient::stop() {
    process_.stop();
    tellEnd({});
}

void HelperClient::tellEnd(const std::string& lastRequest) {
    if (endToTell_.exchange(false))
        observer_->helperEnded(process_.child(), lastRequest);
}

} // namespace kemvi
