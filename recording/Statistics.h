#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace recording {

/// Counts durations in buckets, four to each doubling: what is told of one is right to within 10 %.
class Durations {
public:
    static constexpr std::size_t bucketCount = 160;

    void add(std::int64_t microseconds);

    std::uint64_t count() const { return count_; }

    std::int64_t sum() const { return sum_; }

    std::int64_t longest() const { return longest_; }

    /// What the share `part` (0 to 1) of all does not exceed, in microseconds.
    std::int64_t quantile(double part) const;

    const std::array<std::uint64_t, bucketCount>& buckets() const { return buckets_; }

    /// Where a bucket begins, in microseconds.
    static double lowerBound(std::size_t bucket);

private:
    std::array<std::uint64_t, bucketCount> buckets_{};
    std::uint64_t count_ = 0;
    std::int64_t sum_ = 0;
    std::int64_t longest_ = 0;
};

/// What happened when: fixed memory, whatever the length of the recording. A slot becomes twice as long whenever time
/// has outgrown them.
class TimeLine {
public:
    static constexpr std::size_t mostSlots = 600;

    struct Slot {
        std::uint64_t exchanges = 0;
        std::uint64_t requests = 0; // of the kernel
        std::uint64_t errors = 0;
        std::int64_t helper = 0; // microseconds in which it was asked
        std::uint64_t bytes = 0;
    };

    /// The slot of a moment, in microseconds since the recording began. Valid until the next call.
    Slot& at(std::int64_t microseconds);

    const std::vector<Slot>& slots() const { return slots_; }

    /// In microseconds.
    std::int64_t slotLength() const { return length_; }

private:
    void fold();

    std::vector<Slot> slots_;
    std::int64_t length_ = 1000;
};

/// What is known of one kind of request, or of one path.
struct Tally {
    Durations durations;
    std::uint64_t errors = 0;
    std::uint64_t bytes = 0;
};

struct PathTally {
    std::uint64_t count = 0;
    std::uint64_t errors = 0;
    std::uint64_t bytes = 0;
    std::int64_t time = 0; // microseconds
};

/// One exchange that took long.
struct SlowExchange {
    std::int64_t at = 0;   // microseconds since the recording began
    std::int64_t took = 0; // microseconds
    std::uint64_t line = 0;
    std::string op;
    std::string path;
    std::string error; // its code; empty for a success
};

} // namespace recording
