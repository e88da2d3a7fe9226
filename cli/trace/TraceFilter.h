#pragma once

#include "cli/trace/TraceFeed.h"
#include "control/Request.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What of a trace somebody wants to see: whatever passes all that is set.
struct TraceFilter {
    std::vector<std::string> operations{}; // names as a trace has them ("read"); empty: all
    std::optional<std::string> path{};   // a pattern as shells have it ("*" also matches "/"); without any of its signs
                                         // the path itself and what lies beneath
    std::optional<std::string> caller{}; // the number of a process or thread, or a pattern for the process's name
    std::optional<std::string> error{};  // "any", or the name of one ("ENOENT")
    std::chrono::microseconds least{0};  // that it took

    /// The names of the members of a request that say this.
    static const std::vector<std::string>& members();
    /// Throws control::Refusal, which names the member and what was expected.
    static TraceFilter of(const control::Request& request);

    bool passes(const TracedRequest& traced) const;
};

} // namespace cli
