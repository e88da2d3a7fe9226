#include "hosts/fuse/placement/Demand.h"

#include <algorithm>

namespace fusehost {
namespace {

/// Besides others: the thread that looks, and one of those that take turns to serve a request.
constexpr int ourOwn = 2;
/// Programs that wait for the mount most of the time are ready together now and then, those that compute always are.
constexpr std::ptrdiff_t mayBeBelow = 1;

} // namespace

void Demand::add(int runnable, int processors) {
    const bool isAbove = runnable >= processors + ourOwn;
    if (looks_ == 0)
        above_.fill(isAbove);
    above_[looks_++ % kept] = isAbove;
}

bool Demand::isHigh() const {
    return looks_ > 0 && std::count(above_.begin(), above_.end(), false) <= mayBeBelow;
}

} // namespace fusehost
