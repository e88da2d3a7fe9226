#include "hosts/fuse/calls/KernelError.h"

#include "hosts/fuse/calls/FailureLog.h"
#include "hosts/fuse/calls/KernelErrno.h"

#include <cstring>
#include <utility>

namespace fusehost {

struct KernelError::Cause {
    foundation::NSError error;
    std::shared_ptr<FailureLog> log;
};

KernelError::KernelError(foundation::NSError cause, std::shared_ptr<FailureLog> log) : number_(kernelErrno(cause)) {
    if (cause.origin || !cause.isPosix())
        cause_ = std::make_shared<const Cause>(Cause{std::move(cause), std::move(log)});
}

void KernelError::tell() const noexcept {
    if (cause_ && cause_->log)
        cause_->log->note(cause_->error, number_);
}

bool KernelError::isFault() const noexcept {
    return cause_ && !cause_->error.isPosix();
}

const char* KernelError::what() const noexcept {
    return std::strerror(number_);
}

} // namespace fusehost
