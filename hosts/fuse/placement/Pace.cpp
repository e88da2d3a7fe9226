#include "hosts/fuse/placement/Pace.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace fusehost {
namespace {

using namespace std::chrono_literals;

/// Of the last eight requests, for which waiting pays.
constexpr int mostlyInTime = 5;
/// What being woken takes, by which a request that was slept for comes later than it could have.
constexpr Pace::Duration wakingTime = 50us;
constexpr std::size_t fewestGaps = 32;

} // namespace

void Pace::arrived(Clock::time_point now) noexcept {
    const auto gap = now - last_;
    last_ = now;
    const bool isClose = gap <= longestGap;
    const std::uint64_t count = count_.load(std::memory_order_relaxed);
    const auto nanoseconds =
        static_cast<std::uint32_t>(isClose ? std::chrono::duration_cast<std::chrono::nanoseconds>(gap).count() : 0);
    gaps_[count % kept].store(nanoseconds, std::memory_order_relaxed);
    count_.store(count + 1, std::memory_order_release);
    streak_ = isClose ? streak_ + 1 : 0;
    if (streak_ >= busyAfter && resting_.load(std::memory_order_relaxed)) {
        resting_ = false;
        streak_ = 0;
        inTime_ = 0xff; // the benefit of the doubt
        onBusy_();
    }
}

Pace::Duration Pace::waitingTime() const noexcept {
    if (!waitingAllowed_.load(std::memory_order_relaxed) || std::popcount(inTime_) < mostlyInTime)
        return Duration(0);
    return longestWait;
}

void Pace::waited(Duration time, bool asleep) noexcept {
    const bool inTime = time <= longestWait + (asleep ? wakingTime : Duration(0));
    inTime_ = static_cast<std::uint8_t>(inTime_ << 1 | (inTime ? 1 : 0));
}

std::uint64_t Pace::take(std::vector<std::uint32_t>& gaps) {
    const std::uint64_t count = count_.load(std::memory_order_acquire);
    const std::uint64_t requests = count - taken_;
    for (std::uint64_t at = count - std::min<std::uint64_t>(requests, kept); at < count; ++at)
        if (const std::uint32_t gap = gaps_[at % kept].load(std::memory_order_relaxed); gap != 0)
            gaps.push_back(gap);
    taken_ = count;
    return requests;
}

std::optional<double> typicalCost(std::vector<std::uint32_t>& gaps) {
    if (gaps.size() < fewestGaps)
        return std::nullopt;
    const auto count = gaps.size() - gaps.size() / 10;
    std::nth_element(gaps.begin(), gaps.begin() + static_cast<std::ptrdiff_t>(count - 1), gaps.end());
    return std::accumulate(gaps.begin(), gaps.begin() + static_cast<std::ptrdiff_t>(count), 0.0) /
           static_cast<double>(count);
}

} // namespace fusehost
