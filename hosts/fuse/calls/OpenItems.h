#pragma once

#include "fskit/FSVolume.h"

#include <mutex>
#include <unordered_map>

namespace fusehost {

/// Which items a volume holds something open for. A volume keeps that by identifier, and items that are not the same
/// may share one: the second to come would be served from what is open for the first. So at most one of them may be
/// open at a time. Items without an identifier are not kept account of. Thread-safe.
class OpenItems {
public:
    /// Notes that something is open, or about to be, for the item; returns null. If another item of its identifier is
    /// open, notes nothing and returns that one: it is to be closed first.
    fskit::FSItemPtr enter(const fskit::FSItemPtr& item);
    /// Nothing is open for the item any more.
    void leave(const fskit::FSItem& item);
    /// Another item of the same identifier that is open; null if there is none.
    fskit::FSItemPtr rivalOf(const fskit::FSItem& item) const;

    std::size_t size() const;

private:
    mutable std::mutex lock_; // guards items_
    std::unordered_map<fskit::FSItemID, fskit::FSItemPtr> items_;
};

} // namespace fusehost
