#pragma once

#include "foundation/NSError.h"

#include <exception>

namespace fusehost {

/// The errno value of the running kernel for an error of the volume: its own number for the POSIX domain, EIO for
/// every other domain. The one place where error values become errno values.
int kernelErrno(const foundation::NSError& error);

/// An operation's failure, as the kernel is told of it. Thrown by everything between the volume and the reply.
class KernelError final : public std::exception {
public:
    explicit KernelError(int number) : number_(number) {}

    /// The same for a fault that has its line in the log already.
    static KernelError logged(int number) {
        KernelError error(number);
        error.logged_ = true;
        return error;
    }

    /// An errno value of the running kernel.
    int number() const { return number_; }

    bool isLogged() const { return logged_; }

    const char* what() const noexcept override;

private:
    int number_;
    bool logged_ = false;
};

} // namespace fusehost
