#include "hosts/fuse/monitor/LatencyHistogram.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace fusehost {

std::uint64_t LatencyCounts::count() const {
    return std::accumulate(buckets.begin(), buckets.end(), std::uint64_t{0});
}

std::chrono::nanoseconds LatencyCounts::quantile(double part) const {
    const std::uint64_t all = count();
    if (all == 0)
        return std::chrono::nanoseconds(0);
    const double wanted = std::ceil(std::clamp(part, 0.0, 1.0) * static_cast<double>(all));
    const auto rank = std::max(std::uint64_t{1}, static_cast<std::uint64_t>(wanted));
    std::size_t index = 0;
    for (std::uint64_t seen = buckets[0]; seen < rank; seen += buckets[index])
        ++index;
    return std::min(longest, std::chrono::nanoseconds(std::llround(LatencyBuckets::middleOf(index))));
}

LatencyCounts LatencyHistogram::read() const {
    LatencyCounts counts;
    for (std::size_t i = 0; i < buckets_.size(); ++i)
        counts.buckets[i] = buckets_[i].load(std::memory_order_relaxed);
    counts.sum = std::chrono::nanoseconds(sum_.load(std::memory_order_relaxed));
    counts.longest = std::chrono::nanoseconds(longest_.load(std::memory_order_relaxed));
    return counts;
}

} // namespace fusehost
