#pragma once

#include <array>
#include <cstddef>

namespace fusehost {

/// Judges from how many threads of the whole machine are ready to run, looked at now and then, whether others want
/// every processor. None of them is asleep then, so nothing is gained by sparing their waking, and two that share one
/// have the share of one. Pure.
class Demand {
public:
    /// Begins anew: the first look decides until there are more.
    void begin() { looks_ = 0; }

    /// Adds what was seen: threads that run or are ready to, with the one that looks, and processors of the machine.
    void add(int runnable, int processors);

    bool isHigh() const;

private:
    static constexpr std::size_t kept = 8;

    std::array<bool, kept> above_{};
    std::size_t looks_ = 0;
};

} // namespace fusehost
