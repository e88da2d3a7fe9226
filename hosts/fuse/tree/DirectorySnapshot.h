#pragma once

#include "fskit/FSVolumeTypes.h"
#include "hosts/fuse/calls/VolumeCalls.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace fusehost {

/// True for a name that a kernel takes for an entry of a directory: not empty, ".", ".." or too long, without "/".
bool isUsableName(std::string_view name, std::size_t maximumLength);

/// One name of a listing.
struct ListedEntry {
    std::string name;
    fskit::FSItemType type;
    fskit::FSItemID id;
    /// What the listing said of the entry; enough to make the full attributes, which are large, when they are asked.
    fskit::FSItemAttributes attributes;
    mutable bool isTold = false; // handed out with its node
};

/// A directory as one enumeration found it. Every request of an open directory is served from one snapshot, so that a
/// listing costs one exchange whatever the kernel's buffer, and an entry is neither skipped nor repeated when others
/// come and go meanwhile.
class DirectorySnapshot {
public:
    /// Enumerates the directory now. `changeCount` is the tree's change count, kept as the snapshot's age. Names that
    /// the kernel would refuse are left out with one line in the log. Throws KernelError.
    DirectorySnapshot(VolumeCalls& volume, const fskit::FSItemPtr& directory, std::uint64_t changeCount);

    /// The entries, "." and ".." first, in the volume's order.
    const std::deque<ListedEntry>& entries() const { return entries_; }

    /// The entry of that name if it is at hand and was not handed out yet: a kernel that asks once more doubts it.
    /// Found at once where names are asked for in the listing's order; in any other they are not looked for before so
    /// many were asked for that it pays. Null otherwise.
    const ListedEntry* untold(std::string_view name);

    /// True if names were left out because no kernel accepts them.
    bool leftNamesOut() const { return leftNamesOut_; }

    std::uint64_t changeCount() const { return changeCount_; }

    /// The time since the enumeration, to a few milliseconds: it is asked for every entry.
    std::chrono::nanoseconds age() const;

private:
    const ListedEntry* find(std::string_view name);
    const ListedEntry* findByIndex(std::string_view name);

    std::deque<ListedEntry> entries_; // of which there may be very many, too large to be moved whenever more come
    std::size_t next_ = 0;            // where the next name that is asked for is expected
    std::size_t astray_ = 0;          // names that were not there
    std::unordered_map<std::string_view, std::size_t> places_; // by name; empty until it pays
    std::uint64_t changeCount_;
    bool leftNamesOut_ = false;
    std::chrono::nanoseconds taken_{}; // by the coarse clock
};

} // namespace fusehost
