#pragma once

#include "foundation/NSError.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace foundation {

/// Base of everything the core throws on purpose. Each kind knows the error value that it becomes at the edge.
class Error : public std::exception {
public:
    ~Error() override;

    /// The value handed to whoever drives the core: domain, code, and a description only where this kind carries one.
    virtual NSError nsError() const = 0;

    /// The text shown in logs.
    virtual std::string description() const = 0;

    const char* what() const noexcept override;

    /// Where it arose; set by those whom the error passes on its way up, who know more than whoever threw it.
    const std::shared_ptr<const ErrorOrigin>& origin() const { return origin_; }

    void setOrigin(ErrorOrigin origin) { origin_ = std::make_shared<const ErrorOrigin>(std::move(origin)); }

private:
    std::shared_ptr<const ErrorOrigin> origin_;
    mutable std::string what_;
};

/// An error that already is a value: POSIX errors made by the core, and errors of the platform passed on unchanged.
class NSErrorException final : public Error {
public:
    explicit NSErrorException(NSError error) : error_(std::move(error)) {}

    NSError nsError() const override { return error_; }

    std::string description() const override { return error_.description(); }

private:
    NSError error_;
};

/// The error value for `error`, which knows where it arose and, for the log, what it was.
NSError errorValue(const Error& error);

/// The error value for the exception being handled; call it from a catch block only. An exception that is not an
/// `Error` becomes ENOMEM (std::bad_alloc) or EIO with the exception's text as debug text.
NSError currentError();

/// Runs `work`. An error that passes and knows where it arose, but not of which path, is told `subject`.
template <typename Work>
auto tellingSubject(const std::string& subject, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (Error& error) {
        if (error.origin() && error.origin()->subject.empty()) {
            ErrorOrigin origin = *error.origin();
            origin.subject = subject;
            error.setOrigin(std::move(origin));
        }
        throw;
    }
}

/// Throws a POSIX-domain error with no user info. `darwinErrno` is a constant of foundation/PosixErrno.h.
[[noreturn]] void throwPosix(std::int32_t darwinErrno);

} // namespace foundation
