#include "hosts/fuse/tree/OpenItems.h"

#include <algorithm>
#include <utility>

namespace fusehost {

using fskit::FSItem;
using fskit::FSItemPtr;

namespace {

template <typename Items>
auto findIn(Items& items, const FSItem& item) {
    auto [at, end] = items.equal_range(item.identifier());
    while (at != end && !at->second.item->isSame(item))
        ++at;
    return at == end ? items.end() : at;
}

} // namespace

OpenItems::Items::const_iterator OpenItems::find(const FSItem& item) const {
    return findIn(items_, item);
}

OpenItems::Items::iterator OpenItems::find(const FSItem& item) {
    return findIn(items_, item);
}

FSItemPtr OpenItems::rivalOf(const FSItem& item) const {
    const fskit::FSItemID identifier = item.identifier();
    if (identifier == fskit::FSItemID::invalid)
        return nullptr;
    const auto known = items_.find(identifier);
    return known == items_.end() || known->second.item->isSame(item) ? nullptr : known->second.item;
}

OpenItems::Open& OpenItems::entered(const Node& node) {
    const auto known = find(*node.item);
    return known != items_.end() ? known->second : items_.emplace(node.item->identifier(), Open{node.item})->second;
}

void OpenItems::enter(const Node& node) {
    Open& open = entered(node);
    if (!open.isWritten)
        open.node = node.id;
}

void OpenItems::enterWriting(const Node& node) {
    Open& open = entered(node);
    open.node = node.id;
    open.isWritten = true;
}

void OpenItems::leaveWriting(const FSItem& item) {
    if (const auto known = find(item); known != items_.end())
        known->second.isWritten = false;
}

void OpenItems::leave(const FSItem& item) {
    if (const auto known = find(item); known != items_.end())
        items_.erase(known);
}

void OpenItems::clear() {
    items_.clear();
    unused_.clear();
}

bool OpenItems::mayBeWritten(const FSItem& item) const {
    const auto known = find(item);
    return known != items_.end() && known->second.isWritten;
}

std::vector<NodeID> OpenItems::writersBeside(const FSItem* item) const {
    std::vector<NodeID> nodes;
    for (const auto& [identifier, open] : items_)
        if (open.isWritten && (item == nullptr || !open.item->isSame(*item)))
            nodes.push_back(open.node);
    return nodes;
}

NodeID OpenItems::nodeOf(const FSItem& item) const {
    const auto known = find(item);
    return known == items_.end() ? 0 : known->second.node;
}

void OpenItems::addUnused(FSItemPtr item) {
    unused_.push_back(std::move(item));
}

bool OpenItems::isUnused(const FSItem& item) const {
    return std::any_of(unused_.begin(), unused_.end(), [&](const FSItemPtr& unused) { return unused->isSame(item); });
}

FSItemPtr OpenItems::takeUnused() {
    if (unused_.empty())
        return nullptr;
    FSItemPtr item = std::move(unused_.front());
    unused_.pop_front();
    return item;
}

void OpenItems::removeUnused(const FSItem& item) {
    std::erase_if(unused_, [&](const FSItemPtr& unused) { return unused->isSame(item); });
}

} // namespace fusehost
