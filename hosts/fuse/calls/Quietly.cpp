#include "hosts/fuse/calls/Quietly.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"

#include <exception>

namespace fusehost {
namespace {

void describeFailure(const char* task) {
    constexpr const char* failed = " failed: ";
    try {
        throw;
    } catch (const KernelError& failure) {
        if (failure.hasCause())
            failure.tell();
        else
            hostLog().error({task, failed, foundation::logPublic(failure.what())});
    } catch (const std::exception& failure) {
        hostLog().error({task, failed, foundation::logPublic(failure.what())});
    } catch (...) {
        hostLog().error({task, failed, "an exception of an unknown kind"});
    }
}

} // namespace

void logFailure(const char* task) noexcept {
    try {
        describeFailure(task);
    } catch (...) {
        // Not even memory for a line of the log: the mount goes on without it.
    }
}

} // namespace fusehost
