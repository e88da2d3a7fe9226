#include "hosts/fuse/placement/Judge.h"

#include <algorithm>
#include <cmath>

namespace fusehost {
namespace {

using namespace std::chrono_literals;

/// A way other than `apart` must be faster by more than chance.
constexpr double clearlyFaster = 0.95;
/// Two processors in use for the work of one must be worth more than that.
constexpr double worthTwo = 0.9;
/// How long the presumption holds.
constexpr std::chrono::milliseconds untilFirstTrial = 500ms;
constexpr std::chrono::seconds shortestInterval = 1s;
constexpr std::chrono::seconds longestInterval = 16s;

std::size_t index(Way way) {
    return static_cast<std::size_t>(way);
}

} // namespace

const char* nameOf(Way way) {
    switch (way) {
    case Way::apart: return "apart";
    case Way::waiting: return "waiting";
    case Way::together: return "together";
    }
    return "";
}

Way Judge::way() const {
    if (barredUntil_)
        return Way::apart;
    return trying_ ? tried() : kept_;
}

// Every other round goes backwards, so that what grows or falls steadily meanwhile favours none.
Way Judge::tried() const {
    const std::size_t count = waysTried();
    const std::size_t place = look_ % count;
    return static_cast<Way>((look_ / count) % 2 == 0 ? place : count - 1 - place);
}

bool Judge::add(Clock::time_point now, std::optional<double> cost) {
    if (barredUntil_) {
        if (now < *barredUntil_)
            return false;
        barredUntil_.reset();
        if (!before_)
            startTrial();
        return false;
    }
    if (!trying_) {
        if (!again_)
            again_ = now + untilFirstTrial;
        else if (now >= *again_)
            startTrial();
        return false;
    }
    if (!cost)
        return false;
    costs_[index(tried())][look_ / waysTried()] = *cost;
    if (++look_ < rounds * waysTried())
        return false;
    conclude(now);
    return true;
}

void Judge::presume() {
    trying_ = false;
    kept_ = Way::together;
    again_.reset();
}

void Judge::startTrial() {
    trying_ = true;
    look_ = 0;
}

// The middle of the rounds, each compared with its neighbour in time.
double Judge::ratio(Way way) const {
    std::array<double, rounds> ratios{};
    for (std::size_t round = 0; round < rounds; ++round)
        ratios[round] = costs_[index(way)][round] / costs_[index(Way::apart)][round];
    std::sort(ratios.begin(), ratios.end());
    static_assert(rounds % 2 == 0, "as many rounds go backwards as forwards");
    return std::sqrt(ratios[rounds / 2 - 1] * ratios[rounds / 2]);
}

void Judge::conclude(Clock::time_point now) {
    trying_ = false;
    kept_ = Way::apart;
    result_.clear();
    double best = clearlyFaster;
    for (std::size_t at = 1; at < waysTried(); ++at) {
        const Way way = static_cast<Way>(at);
        const double cost = ratio(way);
        result_ += std::string(result_.empty() ? "" : ", ") + nameOf(way) + " " +
                   std::to_string(std::lround(cost * 100)) + " %";
        // Together comes last.
        if (cost < best || (kept_ == Way::waiting && cost * worthTwo < best)) {
            best = cost;
            kept_ = way;
        }
    }
    interval_ = before_ == kept_ ? std::min(longestInterval, interval_ * 2) : shortestInterval;
    before_ = kept_;
    again_ = now + interval_;
}

void Judge::bar(Clock::time_point until) {
    barredUntil_ = until;
    if (trying_)
        before_.reset();
    trying_ = false;
}

void Judge::excludeTogether(bool excluded) {
    if (togetherExcluded_ == excluded)
        return;
    togetherExcluded_ = excluded;
    before_.reset();
    if (excluded)
        startTrial();
    else
        presume();
}

std::string Judge::result() const {
    return result_;
}

} // namespace fusehost
