#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

/// Where an error arose, for whoever logs it.
struct ErrorOrigin {
    std::string operation; // what was asked for, such as "write"
    std::string subject;   // the path that it was asked of; private; may be empty
    std::string request;   // the request's number
    std::string code;      // the error's own name as it was reported, such as "ENOSPC"; may be empty
    std::string state;     // not empty: the error lasts, and others that name the same state say nothing new
};

/// An error as a value, the form in which every error leaves the core. Codes of the POSIX domain are macOS errno
/// numbers on every platform. Immutable by convention; may be copied and passed on any thread.
struct NSError {
    std::string domain;
    std::int64_t code = 0;
    /// The text under the localised-description key; absent when the error carries no user info.
    std::optional<std::string> localizedDescription;
    /// What the error says of itself in a log. Never user info: it does not take part in comparison and a host must
    /// not hand it on as a description.
    std::string debugText;
    /// Null where nothing is known. Takes no part in comparison either.
    std::shared_ptr<const ErrorOrigin> origin = nullptr;

    /// A POSIX-domain error with no user info.
    static NSError posix(std::int32_t darwinErrno);
    /// A POSIX-domain error whose only user info is the localised description `message`.
    static NSError posix(std::int32_t darwinErrno, std::string message);

    bool isPosix() const { return domain == NSPOSIXErrorDomain; }

    /// Display text for logs: the debug text or the description where there is one, else domain and code.
    std::string description() const;

    friend bool operator==(const NSError& a, const NSError& b) {
        return a.domain == b.domain && a.code == b.code && a.localizedDescription == b.localizedDescription;
    }
};

} // namespace foundation
