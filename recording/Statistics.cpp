#include "recording/Statistics.h"

#include <algorithm>
#include <cmath>

namespace recording {
namespace {

constexpr double perDoubling = 4;

} // namespace

double Durations::lowerBound(std::size_t bucket) {
    return bucket == 0 ? 0 : std::exp2(static_cast<double>(bucket - 1) / perDoubling);
}

void Durations::add(std::int64_t microseconds) {
    const std::int64_t known = std::max<std::int64_t>(0, microseconds);
    const double place = known < 1 ? 0 : 1 + std::floor(perDoubling * std::log2(static_cast<double>(known)) + 1e-9);
    ++buckets_[std::min(static_cast<std::size_t>(place), bucketCount - 1)];
    ++count_;
    sum_ += known;
    longest_ = std::max(longest_, known);
}

std::int64_t Durations::quantile(double part) const {
    std::uint64_t left = static_cast<std::uint64_t>(std::ceil(part * static_cast<double>(count_)));
    for (std::size_t i = 0; i < bucketCount && left > 0; ++i) {
        if (buckets_[i] < left) {
            left -= buckets_[i];
            continue;
        }
        const double middle = std::sqrt(std::max(1.0, lowerBound(i)) * lowerBound(i + 1));
        return std::min(longest_, i == 0 ? 0 : static_cast<std::int64_t>(std::lround(middle)));
    }
    return longest_;
}

TimeLine::Slot& TimeLine::at(std::int64_t microseconds) {
    const std::int64_t moment = std::max<std::int64_t>(0, microseconds);
    while (moment / length_ >= static_cast<std::int64_t>(mostSlots))
        fold();
    const auto index = static_cast<std::size_t>(moment / length_);
    if (index >= slots_.size())
        slots_.resize(index + 1);
    return slots_[index];
}

void TimeLine::fold() {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        const Slot slot = slots_[i];
        if (i % 2 == 0) {
            slots_[i / 2] = slot;
            continue;
        }
        Slot& half = slots_[i / 2];
        half.exchanges += slot.exchanges;
        half.requests += slot.requests;
        half.errors += slot.errors;
        half.helper += slot.helper;
        half.bytes += slot.bytes;
    }
    slots_.resize((slots_.size() + 1) / 2);
    length_ *= 2;
}

} // namespace recording
