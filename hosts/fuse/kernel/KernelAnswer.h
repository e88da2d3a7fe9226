#pragma once

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/LibFuse.h"

namespace fusehost {

/// The errno value for the exception being handled; called in a catch block. A fault that the value alone would hide
/// gets a log line.
int errnoOfFailure() noexcept;

/// Answers with an errno value.
void replyFailure(fuse_req_t request, int number) noexcept;

/// The context's Renewal, if there is one, before a request and after its failure.
void beginRequest(fuse_req_t request) noexcept;
bool isToBeRepeated(fuse_req_t request) noexcept;

/// Runs one operation, which replies as the last thing that can fail; a failure before that becomes the reply here,
/// unless it is to be run once more. A request has exactly one reply: what is left to do after it belongs into
/// `quietly`.
template <typename Operation>
void answer(fuse_req_t request, const Operation& operation) noexcept {
    beginRequest(request);
    while (true) {
        try {
            operation();
        } catch (const KernelError& failure) {
            if (isToBeRepeated(request))
                continue;
            failure.tell();
            replyFailure(request, failure.number());
        } catch (...) {
            replyFailure(request, errnoOfFailure());
        }
        return;
    }
}

} // namespace fusehost
