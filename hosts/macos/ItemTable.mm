#import "hosts/macos/ItemTable.h"

namespace macoshost {

KemviItem* ItemTable::platformItem(const fskit::FSItemPtr& core) {
    if (!core)
        return nil;
    const std::lock_guard guard(lock_);
    __weak KemviItem*& entry = items_[core.get()];
    KemviItem* item = entry;
    if (!item) {
        item = [[KemviItem alloc] initWithCore:core table:shared_from_this()];
        entry = item;
    }
    return item;
}

void ItemTable::forget(const fskit::FSItem* core) {
    KemviItem* successor = nil; // let go of after the lock: its destruction comes back here
    const std::lock_guard guard(lock_);
    const auto entry = items_.find(core);
    if (entry == items_.end())
        return;
    // A living object in the entry was made while the old one was on its way out.
    successor = entry->second;
    if (!successor)
        items_.erase(entry);
}

} // namespace macoshost
