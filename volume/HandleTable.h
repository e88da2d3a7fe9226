#pragma once

#include "fskit/FSItem.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kemvi {

/// A file that the helper has opened.
struct OpenHandle {
    std::int64_t handle = 0; // the helper's number
    std::string path;        // when it was opened; for messages only

    friend bool operator==(const OpenHandle&, const OpenHandle&) = default;
};

/// The helper's handles that a volume holds: at most one per item and direction, under the item's identifier. It only
/// remembers: whoever takes a handle out gives it back to the helper.
///
/// Thread-safe. Its lock is held to look at or change the tables, never while a helper is asked, so that it nests with
/// no other lock.
class HandleTable {
public:
    enum class Direction { reading, writing };

    /// The handle for this item, if one is open.
    std::optional<std::int64_t> find(Direction direction, fskit::FSItemID item) const;

    struct Shared {
        std::int64_t handle = 0;
        bool isOurs = false; // false where another thread was first: the handle just opened is then to be given back
    };

    /// Remembers a handle just opened, unless there is one already. Returns the one that is shared from here on; a
    /// helper may give the same number twice, so the number does not tell whose it is.
    Shared share(Direction direction, fskit::FSItemID item, const OpenHandle& opened);

    /// Forgets the handle for this item and returns it, if there is one.
    std::optional<OpenHandle> take(Direction direction, fskit::FSItemID item);

    /// Forgets every handle. Those for reading come first.
    std::vector<OpenHandle> takeAll();

    /// The handles of one direction at this moment, in no order.
    std::vector<OpenHandle> all(Direction direction) const;

private:
    using Handles = std::unordered_map<std::uint64_t, OpenHandle>;

    const Handles& in(Direction direction) const { return direction == Direction::reading ? reading_ : writing_; }

    Handles& in(Direction direction) { return direction == Direction::reading ? reading_ : writing_; }

    mutable std::mutex lock_; // guards both
    Handles reading_;
    Handles writing_;
};

} // namespace kemvi
