#pragma once

#include "hosts/fuse/monitor/UnderWay.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace cli {

/// What the log is told of a request that waits: when it has waited 5 seconds, 30, and then every 5 minutes, and when
/// it is over. Not thread-safe.
class WaitWarnings {
public:
    using Clock = std::chrono::steady_clock;

    struct Warning {
        std::string beginning; // up to the path
        std::string path;      // from the root of the mount; empty for what the host does of its own accord
        std::string end;
    };

    /// Told at least every second or so of what is under way; `waiting` is asked how many requests wait behind it.
    std::optional<Warning> look(const std::optional<fusehost::RequestUnderWay>& request,
                                const std::function<std::size_t()>& waiting, Clock::time_point now);

private:
    struct Told {
        fusehost::RequestUnderWay request;
        std::chrono::seconds next; // to be told when it has waited so long
    };

    std::optional<Told> told_;
};

} // namespace cli
