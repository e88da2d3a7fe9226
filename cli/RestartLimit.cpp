#include "cli/RestartLimit.h"

#include <algorithm>
#include <utility>

namespace cli {

std::optional<std::chrono::milliseconds> RestartLimit::failed(Clock::time_point now) {
    const auto servedSince = std::exchange(servesSince_, std::nullopt);
    if (servedSince && now - *servedSince >= longestPause)
        failures_.clear();
    while (!failures_.empty() && now - failures_.front() > window)
        failures_.pop_front();
    failures_.push_back(now);
    if (failures_.size() >= mostFailures)
        return std::nullopt;
    return std::min(firstPause * (1 << (failures_.size() - 1)), longestPause);
}

} // namespace cli
