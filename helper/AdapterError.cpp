#include "helper/AdapterError.h"

namespace kemvi {

AdapterError AdapterError::notImplemented(std::string message) {
    return {Case::notImplemented, std::move(message)};
}

AdapterError AdapterError::helperFailed(std::int64_t exitCode) {
    return {Case::helperFailed, exitCode};
}

AdapterError AdapterError::protocolError(std::string message) {
    return {Case::protocolError, std::move(message)};
}

foundation::NSError AdapterError::nsError() const {
    return {std::string(domain), static_cast<std::int64_t>(kind_), std::nullopt, {}};
}

std::string AdapterError::description() const {
    if (const auto* exitCode = std::get_if<std::int64_t>(&payload_))
        return "KemviFS helper failed with exit code " + std::to_string(*exitCode);
    return std::get<std::string>(payload_);
}

} // namespace kemvi
