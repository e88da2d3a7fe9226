#include "hosts/fuse/KernelAnswer.h"

#include "hosts/fuse/HostLog.h"
#include "hosts/fuse/KernelErrno.h"

#include <cerrno>
#include <exception>
#include <new>

namespace fusehost {

int errnoOfFailure() noexcept {
    try {
        throw;
    } catch (const KernelError& failure) {
        return failure.number();
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (...) {
        logFailure("an operation that is answered with EIO");
        return EIO;
    }
}

void logFailure(const char* task) noexcept {
    constexpr const char* failed = " failed: ";
    try {
        throw;
    } catch (const KernelError& failure) {
        if (!failure.isLogged())
            hostLog().error({task, failed, foundation::logPublic(failure.what())});
    } catch (const std::exception& failure) {
        hostLog().error({task, failed, foundation::logPublic(failure.what())});
    } catch (...) {
        hostLog().error({task, failed, "an exception of an unknown kind"});
    }
}

} // namespace fusehost
