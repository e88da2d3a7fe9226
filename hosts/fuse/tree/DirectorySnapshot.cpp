#include "hosts/fuse/tree/DirectorySnapshot.h"

#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <ctime>

namespace fusehost {
namespace {

bool isDot(std::string_view name) {
    return name == "." || name == "..";
}

constexpr std::size_t expectedWithin = 4;
constexpr std::size_t entriesPerQuestion = 128; // of which the places are noted in the time of one question

// By a clock that never goes back, read without asking the hardware.
std::chrono::nanoseconds coarseTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

class SnapshotPacker final : public fskit::FSDirectoryEntryPacker {
public:
    SnapshotPacker(std::deque<ListedEntry>& entries, std::size_t maximumNameLength)
        : entries_(entries), maximumNameLength_(maximumNameLength) {}

    bool packEntry(const fskit::FSFileName& name, fskit::FSItemType itemType, fskit::FSItemID itemID,
                   fskit::FSDirectoryCookie, const fskit::FSItemAttributes* attributes) override {
        const bool isOwnOrParent = entries_.size() < 2 && isDot(name.data());
        if (isOwnOrParent || (name.isWhole() && isUsableName(name.data(), maximumNameLength_)))
            entries_.push_back({name.data(), itemType, itemID, attributes ? *attributes : fskit::FSItemAttributes()});
        else
            reject(name.data());
        return true;
    }

    std::size_t rejected() const { return rejected_; }

    const std::string& firstRejected() const { return firstRejected_; }

private:
    void reject(std::string_view name) {
        if (rejected_++ == 0)
            firstRejected_ = name;
    }

    std::deque<ListedEntry>& entries_;
    std::size_t maximumNameLength_;
    std::size_t rejected_ = 0;
    std::string firstRejected_;
};

} // namespace

bool isUsableName(std::string_view name, std::size_t maximumLength) {
    return !name.empty() && !isDot(name) && name.find('/') == std::string_view::npos && name.size() <= maximumLength;
}

DirectorySnapshot::DirectorySnapshot(VolumeCalls& volume, const fskit::FSItemPtr& directory, std::uint64_t changeCount)
    : changeCount_(changeCount) {
    SnapshotPacker packer(entries_, volume.maximumNameLength());
    volume.enumerate(directory, packer);
    // As for a single lookup, trust begins with the answer: what a helper takes for a large directory must not use it
    // up.
    taken_ = coarseTime();
    leftNamesOut_ = packer.rejected() > 0;
    if (leftNamesOut_)
        hostLog().error({"left out of a listing: ", foundation::logPublic(std::to_string(packer.rejected())),
                         " entries whose names no kernel accepts, the first of them \"",
                         foundation::logPublic(packer.firstRejected()), "\""});
}

const ListedEntry* DirectorySnapshot::untold(std::string_view name) {
    const ListedEntry* entry = find(name);
    return entry != nullptr && !entry->isTold ? entry : nullptr;
}

const ListedEntry* DirectorySnapshot::find(std::string_view name) {
    const std::size_t end = std::min(entries_.size(), next_ + expectedWithin);
    for (std::size_t place = next_; place < end; ++place)
        if (entries_[place].name == name) {
            next_ = place + 1;
            return &entries_[place];
        }
    return findByIndex(name);
}

const ListedEntry* DirectorySnapshot::findByIndex(std::string_view name) {
    if (places_.empty()) {
        if (++astray_ * entriesPerQuestion < entries_.size())
            return nullptr;
        for (std::size_t place = 0; place < entries_.size(); ++place)
            places_.emplace(entries_[place].name, place);
    }
    const auto found = places_.find(name);
    if (found == places_.end())
        return nullptr;
    next_ = found->second + 1;
    return &entries_[found->second];
}

std::chrono::nanoseconds DirectorySnapshot::age() const {
    return coarseTime() - taken_;
}

} // namespace fusehost
