#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace fusehost {

/// How durations are sorted into buckets: eight to each doubling, from 256 ns to 2.4 hours, and eight for all that is
/// shorter. What is longer counts as the longest.
struct LatencyBuckets {
    static constexpr std::size_t count = 288;

    static constexpr std::size_t indexOf(std::uint64_t nanoseconds) {
        if (nanoseconds < (std::uint64_t{1} << firstExponent))
            return static_cast<std::size_t>(nanoseconds >> (firstExponent - subBits));
        const auto exponent = static_cast<int>(std::bit_width(nanoseconds)) - 1;
        const auto part = static_cast<std::size_t>(nanoseconds >> (exponent - subBits)) & (perDoubling - 1);
        const std::size_t index = static_cast<std::size_t>(exponent - firstExponent + 1) * perDoubling + part;
        return index < count ? index : count - 1;
    }

    /// The shortest duration of a bucket, in nanoseconds. That of `count` is the end of the last.
    static constexpr std::uint64_t lowerBound(std::size_t index) {
        if (index < perDoubling)
            return std::uint64_t{index} << (firstExponent - subBits);
        const auto doubling = static_cast<int>(index / perDoubling) - 1;
        return (perDoubling + index % perDoubling) << (firstExponent - subBits + doubling);
    }

    /// The duration that stands for a bucket: no duration in it, from 256 ns on, is farther from it than 6 % of itself.
    static constexpr double middleOf(std::size_t index) {
        const auto from = static_cast<double>(lowerBound(index));
        const auto to = static_cast<double>(lowerBound(index + 1));
        return 2 * from * to / (from + to);
    }

private:
    static constexpr int subBits = 3;
    static constexpr std::size_t perDoubling = std::size_t{1} << subBits;
    static constexpr int firstExponent = 8;
};

/// Durations as they were counted up to some moment.
struct LatencyCounts {
    std::vector<std::uint64_t> buckets = std::vector<std::uint64_t>(LatencyBuckets::count); // see LatencyBuckets
    std::chrono::nanoseconds sum{0};
    std::chrono::nanoseconds longest{0};

    std::uint64_t count() const;
    /// The duration that the share `part` (0 to 1) of all does not exceed, to within 6 %; 0 if there are none.
    std::chrono::nanoseconds quantile(double part) const;
};

/// Counts durations: fixed memory, a few stores each, no lock. One thread at a time counts; any thread reads, and sees
/// each duration whole or not at all.
class LatencyHistogram {
public:
    void add(std::chrono::nanoseconds duration) noexcept {
        const auto value = static_cast<std::uint64_t>(duration.count() > 0 ? duration.count() : 0);
        increase(buckets_[LatencyBuckets::indexOf(value)], 1);
        increase(sum_, value);
        if (value > longest_.load(std::memory_order_relaxed))
            longest_.store(value, std::memory_order_relaxed);
    }

    LatencyCounts read() const;

    /// Adds to a counter that one thread at a time writes.
    static void increase(std::atomic<std::uint64_t>& counter, std::uint64_t by) noexcept {
        counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
    }

private:
    std::array<std::atomic<std::uint64_t>, LatencyBuckets::count> buckets_{};
    std::atomic<std::uint64_t> sum_{0}; // nanoseconds, as the next
    std::atomic<std::uint64_t> longest_{0};
};

} // namespace fusehost
