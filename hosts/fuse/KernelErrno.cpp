#include "hosts/fuse/KernelErrno.h"

#include "foundation/PosixErrno.h"
#include "hosts/fuse/FailureLog.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace fusehost {

int kernelErrno(const foundation::NSError& error) {
    if (!error.isPosix() || error.code <= 0 || error.code > std::numeric_limits<std::int32_t>::max())
        return EIO;
    return foundation::platformErrno(static_cast<std::int32_t>(error.code));
}

struct KernelError::Cause {
    foundation::NSError error;
    std::shared_ptr<FailureLog> log;
};

KernelError::KernelError(foundation::NSError cause, std::shared_ptr<FailureLog> log) : number_(kernelErrno(cause)) {
    if (cause.origin || !cause.isPosix())
        cause_ = std::make_shared<const Cause>(Cause{std::move(cause), std::move(log)});
}

void KernelError::tell() const noexcept {
    if (cause_)
        cause_->log->note(cause_->error, number_);
}

bool KernelError::isFault() const noexcept {
    return cause_ && !cause_->error.isPosix();
}

const char* KernelError::what() const noexcept {
    return std::strerror(number_);
}

} // namespace fusehost
