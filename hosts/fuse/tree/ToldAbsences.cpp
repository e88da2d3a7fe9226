#include "hosts/fuse/tree/ToldAbsences.h"

#include <utility>

namespace fusehost {

ToldAbsences::ToldAbsences(Seconds trust, std::size_t most, Clock clock)
    : clock_(std::move(clock)), trust_(trust), most_(most) {}

bool ToldAbsences::add(const Node& directory, const std::string& name) {
    if (trust_ <= Seconds(0))
        return false;
    dropOld();
    if (told_.size() >= most_)
        return false;
    told_.push_back({directory.id, name, clock_()});
    return true;
}

void ToldAbsences::forEach(const std::function<bool(NodeID)>& isMeant,
                           const std::function<void(NodeID, const std::string&)>& use) {
    dropOld();
    for (const Told& told : told_)
        if (isMeant(told.directory))
            use(told.directory, told.name);
}

// The kernel counts from when it has the answer, a moment after this did.
void ToldAbsences::dropOld() {
    constexpr std::chrono::seconds later{1};
    const auto now = clock_();
    while (!told_.empty() && now - told_.front().at > trust_ + later)
        told_.pop_front();
}

} // namespace fusehost
