#include "foundation/DecodingError.h"

namespace foundation {
namespace {

// The platform's numbers for coding errors.
constexpr std::int64_t coderReadCorrupt = 4864;
constexpr std::int64_t coderValueNotFound = 4865;
constexpr std::int64_t coderInvalidValue = 4866;

std::string keyName(std::string_view key) {
    return "key \"" + std::string(key) + "\"";
}

} // namespace

DecodingError DecodingError::keyNotFound(std::string_view key) {
    return {Kind::keyNotFound, keyName(key) + " is missing"};
}

DecodingError DecodingError::typeMismatch(std::string_view key, std::string_view expected, std::string_view found) {
    std::string text = keyName(key);
    text.append(": expected ").append(expected).append(", found ").append(found);
    return {found == "null" ? Kind::valueNotFound : Kind::typeMismatch, std::move(text)};
}

DecodingError DecodingError::dataCorrupted(std::string description) {
    return {Kind::dataCorrupted, std::move(description)};
}

NSError DecodingError::nsError() const {
    const bool missing = kind_ == Kind::keyNotFound || kind_ == Kind::valueNotFound;
    return {std::string(NSCocoaErrorDomain), missing ? coderValueNotFound : coderReadCorrupt, std::nullopt, {}};
}

NSError EncodingError::nsError() const {
    return {std::string(NSCocoaErrorDomain), coderInvalidValue, std::nullopt, {}};
}

} // namespace foundation
