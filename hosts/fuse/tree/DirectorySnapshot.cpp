#include "hosts/fuse/tree/DirectorySnapshot.h"

#include "hosts/fuse/support/HostLog.h"

#include <ctime>

namespace fusehost {
namespace {

bool isDot(std::string_view name) {
    return name == "." || name == "..";
}

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

std::chrono::nanoseconds DirectorySnapshot::age() const {
    return coarseTime() - taken_;
}

} // namespace fusehost
