#pragma once

#include "foundation/Error.h"

#include <cstdint>
#include <string>
#include <variant>

namespace kemvi {

/// The adapter's own errors: what goes wrong between it and the helper. Never turned into an errno.
class AdapterError final : public foundation::Error {
public:
    /// The ordinals are the codes under which the errors leave the core.
    enum class Case { notImplemented = 0, helperFailed = 1, protocolError = 2 };

    /// Domain of every AdapterError as an NSError value.
    static constexpr std::string_view domain = "KemviFSExtension.AdapterError";

    static AdapterError notImplemented(std::string message);
    static AdapterError helperFailed(std::int64_t exitCode);
    static AdapterError protocolError(std::string message);

    Case kind() const { return kind_; }

    /// The domain above, the case's ordinal, no user info.
    foundation::NSError nsError() const override;

    /// The message; for helperFailed "KemviFS helper failed with exit code " and the code.
    std::string description() const override;

private:
    AdapterError(Case kind, std::variant<std::string, std::int64_t> payload)
        : kind_(kind), payload_(std::move(payload)) {}

    Case kind_;
    std::variant<std::string, std::int64_t> payload_;
};

} // namespace kemvi
