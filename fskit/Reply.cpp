#include "fskit/Reply.h"

#include "foundation/Log.h"

#include <cassert>

namespace fskit::detail {

void replyCalledTwice() {
    assert(false && "a reply handler was called twice");
}

void replyDropped() {
    static const foundation::Logger logger(foundation::bundleIdentifier, "FSKit");
    logger.error({"a reply handler was dropped without an answer; answering EIO"});
}

} // namespace fskit::detail
