#include "fskit/Reply.h"

#include "foundation/Log.h"

#include <cassert>

namespace fskit::detail {

void replyCalledTwice() {
    assert(false && "a reply handler was called twice");
}

void replyDropped() {
    try {
        static const foundation::Logger logger(foundation::bundleIdentifier, "FSKit");
        logger.error({"a reply handler was dropped without an answer; answering EIO"});
    } catch (...) {
        // No memory for a line of the log; the answer matters more. Called by a destructor.
    }
}

} // namespace fskit::detail
