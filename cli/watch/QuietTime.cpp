#include "cli/watch/QuietTime.h"

#include <algorithm>

namespace cli {

using std::chrono::milliseconds;

void QuietTime::saw(Clock::time_point now) {
    if (!first_)
        first_ = now;
    last_ = now;
}

std::optional<milliseconds> QuietTime::left(Clock::time_point now) const {
    if (!first_)
        return std::nullopt;
    const auto time = std::min(last_ + quiet, *first_ + longest);
    return std::max(std::chrono::ceil<milliseconds>(time - now), milliseconds(0));
}

bool QuietTime::isOver(Clock::time_point now) {
    const auto wait = left(now);
    if (!wait || *wait > milliseconds(0))
        return false;
    first_.reset();
    return true;
}

} // namespace cli
