#pragma once

#import "hosts/macos/KemviItem.h"

#include <mutex>
#include <unordered_map>

NS_ASSUME_NONNULL_BEGIN

namespace macoshost {

/// Which platform object stands for which item of the core. The platform tells items apart by the object, so one item
/// of the core must not have two of them at a time. Keeps neither alive: the platform holds an object until it reclaims
/// the item. Safe on any thread.
class ItemTable : public std::enable_shared_from_this<ItemTable> {
public:
    /// The object for `core`: the living one if there is one, else a new one; nil for null.
    KemviItem* _Nullable platformItem(const fskit::FSItemPtr& core);

    /// The object for `core` is being destroyed.
    void forget(const fskit::FSItem* core);

private:
    std::mutex lock_; // taken alone; no object is destroyed under it
    // The key stays valid: an object holds its item of the core.
    std::unordered_map<const fskit::FSItem*, __weak KemviItem*> items_;
};

} // namespace macoshost

NS_ASSUME_NONNULL_END
