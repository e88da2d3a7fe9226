#include "hosts/fuse/tree/Freshness.h"

#include <utility>

namespace fusehost {

Freshness::Freshness(Seconds attrTimeout, Clock clock) : clock_(std::move(clock)), attrTimeout_(attrTimeout) {}

void Freshness::noteShown(const Node& node, const struct stat& attributes) {
    shown_ = {node.id, node.changed, clock_(), attributes, false};
}

void Freshness::noteShownForChange(const Node& node) {
    shown_.isForChange = shown_.node == node.id;
}

const struct stat* Freshness::shown(const Node& node) const {
    const auto age = clock_() - shown_.seen;
    const bool isTrue = shown_.node == node.id && node.hasName() && shown_.changed == node.changed;
    return isTrue && age < briefTrust && age < attrTimeout_ ? &shown_.attributes : nullptr;
}

const struct stat* Freshness::shownForChange(const Node& node) const {
    return shown_.isForChange ? shown(node) : nullptr;
}

} // namespace fusehost
