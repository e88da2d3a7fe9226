#pragma once

#include "hosts/fuse/LibFuse.h"

#include <utility>

namespace fusehost {

/// The errno value for the exception being handled; called in a catch block. A fault that the value alone would hide
/// gets a log line.
int errnoOfFailure() noexcept;

/// Logs the exception being handled; called in a catch block. `task` says what failed, as in "forgetting a node".
void logFailure(const char* task) noexcept;

/// Runs one operation, which replies as the last thing that can fail; a failure before that becomes the reply here. A
/// request has exactly one reply: what is left to do after it belongs into `withoutReply`.
template <typename Operation>
void answer(fuse_req_t request, Operation&& operation) noexcept {
    try {
        std::forward<Operation>(operation)();
    } catch (...) {
        fuse_reply_err(request, errnoOfFailure());
    }
}

/// Runs what no reply can tell the failure of, because there is none or it has been sent: it is logged.
template <typename Action>
void withoutReply(const char* task, Action&& action) noexcept {
    try {
        std::forward<Action>(action)();
    } catch (...) {
        logFailure(task);
    }
}

} // namespace fusehost
