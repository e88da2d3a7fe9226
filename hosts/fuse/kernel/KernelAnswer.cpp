#include "hosts/fuse/kernel/KernelAnswer.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/kernel/KernelContext.h"

#include <cerrno>
#include <new>

namespace fusehost {

void beginRequest(fuse_req_t request) noexcept {
    if (Renewal* const renewal = contextOf(request).renewal)
        renewal->beforeRequest();
}

bool isToBeRepeated(fuse_req_t request) noexcept {
    Renewal* const renewal = contextOf(request).renewal;
    return renewal != nullptr && renewal->isToBeRepeated();
}

int errnoOfFailure() noexcept {
    try {
        throw;
    } catch (const KernelError& failure) {
        failure.tell();
        return failure.number();
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (...) {
        logFailure("an operation that is answered with EIO");
        return EIO;
    }
}

void replyFailure(fuse_req_t request, int number) noexcept {
    contextOf(request).outcome.error = number;
    fuse_reply_err(request, number);
}

} // namespace fusehost
