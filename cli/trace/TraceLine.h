#pragma once

#include "cli/trace/TraceFeed.h"
#include "control/Members.h"

namespace cli {

/// A traced request as a JSON object, without its braces: "time" (ISO 8601, UTC, microseconds), "process", "pid",
/// "uid", "op", "path", the arguments by name, "bytes" where contents were read or written, "result" ("ok") or "errno"
/// ("ENOENT"), "microseconds", "waited" (of those, before it was executed; left out where it did not wait), "exchanges"
/// (objects: "op", "microseconds", "error" where there was one). What the host did of its own accord has the "op"
/// "idle" or "readahead" and no caller.
control::Members traceMembers(const TracedRequest& request);

} // namespace cli
