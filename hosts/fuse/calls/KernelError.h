#pragma once

#include "foundation/NSError.h"

#include <exception>
#include <memory>

namespace fusehost {

class FailureLog;

/// An operation's failure, as the kernel is told of it. Thrown by everything between the volume and the reply.
class KernelError final : public std::exception {
public:
    explicit KernelError(int number) : number_(number) {}

    /// The failure that an error of the volume is. What the number alone would hide is for `log`, by whoever answers
    /// the operation with this failure, or gives it up where nobody can be answered. A null `log`: it is told
    /// elsewhere.
    KernelError(foundation::NSError cause, std::shared_ptr<FailureLog> log);

    /// An errno value of the running kernel.
    int number() const { return number_; }

    /// True if there is more to tell than the number.
    bool hasCause() const { return cause_ != nullptr; }

    /// True if this is no errno value that the volume answered: it could not be asked, or answered out of order.
    bool isFault() const noexcept;

    /// Gives the cause, if there is one, to the log. A failure that a program sees is told once, where it is answered.
    void tell() const noexcept;

    const char* what() const noexcept override;

private:
    struct Cause;

    int number_;
    std::shared_ptr<const Cause> cause_;
};

} // namespace fusehost
