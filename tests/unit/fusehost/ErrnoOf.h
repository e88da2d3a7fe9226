#pragma once

#include "hosts/fuse/calls/KernelError.h"

namespace fusehosttests {

/// The errno value of the KernelError that `operation` throws; 0 if it returns.
template <typename Operation>
int errnoOf(Operation&& operation) {
    try {
        operation();
        return 0;
    } catch (const fusehost::KernelError& error) {
        return error.number();
    }
}

} // namespace fusehosttests
