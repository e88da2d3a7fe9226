#include "hosts/fuse/calls/OpenItems.h"

namespace fusehost {

using fskit::FSItem;
using fskit::FSItemPtr;

FSItemPtr OpenItems::enter(const FSItemPtr& item) {
    const fskit::FSItemID identifier = item->identifier();
    if (identifier == fskit::FSItemID::invalid)
        return nullptr;
    const std::lock_guard guard(lock_);
    const FSItemPtr& known = items_.try_emplace(identifier, item).first->second;
    return known == item || known->isSame(*item) ? nullptr : known;
}

void OpenItems::leave(const FSItem& item) {
    const std::lock_guard guard(lock_);
    const auto known = items_.find(item.identifier());
    if (known != items_.end() && known->second->isSame(item))
        items_.erase(known);
}

FSItemPtr OpenItems::rivalOf(const FSItem& item) const {
    const std::lock_guard guard(lock_);
    const auto known = items_.find(item.identifier());
    return known == items_.end() || known->second->isSame(item) ? nullptr : known->second;
}

std::size_t OpenItems::size() const {
    const std::lock_guard guard(lock_);
    return items_.size();
}

} // namespace fusehost
