#pragma once

#include "foundation/Error.h"

#include <string>

namespace foundation {

/// JSON bytes that do not hold what was asked of them.
class DecodingError final : public Error {
public:
    enum class Kind { keyNotFound, valueNotFound, typeMismatch, dataCorrupted };

    DecodingError(Kind kind, std::string description) : kind_(kind), description_(std::move(description)) {}

    static DecodingError keyNotFound(std::string_view key);
    /// `expected` and `found` are nouns with their article, such as "a string".
    static DecodingError typeMismatch(std::string_view key, std::string_view expected, std::string_view found);
    static DecodingError dataCorrupted(std::string description);

    Kind kind() const { return kind_; }

    /// NSCocoaErrorDomain with the platform's number: 4865 for a missing key or value, 4864 otherwise.
    NSError nsError() const override;

    std::string description() const override { return description_; }

private:
    Kind kind_;
    std::string description_;
};

/// A value that has no JSON form: a string that is not UTF-8.
class EncodingError final : public Error {
public:
    explicit EncodingError(std::string description) : description_(std::move(description)) {}

    /// NSCocoaErrorDomain 4866.
    NSError nsError() const override;

    std::string description() const override { return description_; }

private:
    std::string description_;
};

} // namespace foundation
