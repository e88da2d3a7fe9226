#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/DirectorySnapshot.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/OpenIDs.h"
#include "hosts/fuse/tree/OpenTable.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace fusehost {

/// The directories that the kernel has open, and what it is told of their entries: never of a hidden file, and of a
/// node only what is as true as it was when the listing was taken. Failures are KernelErrors; EBADF for an unknown
/// directory.
class Listings {
public:
    Listings(VolumeCalls& volume, Nodes& nodes, HiddenFiles& hidden, Attributes& attributes, Freshness& freshness);

    OpenDirectoryID open(const Node& directory);

    void release(OpenDirectoryID id) { open_.erase(id); }

    /// Takes the snapshot that the listing is served from; anew for every listing from the start.
    void start(OpenDirectoryID id);
    /// Entries of the listing; 0 before it is started.
    std::size_t count(OpenDirectoryID id);
    /// Entry `index`, less than `count`; null for a name that is not to be shown.
    const ListedEntry* entry(OpenDirectoryID id, std::size_t index);
    /// The entry as a node handed to the kernel, where the listing still tells the truth about it; otherwise absent.
    std::optional<TreeEntry> node(OpenDirectoryID id, const ListedEntry& entry);
    /// How long the listing's attributes may still be trusted, of `timeout`.
    Seconds remainingTrust(OpenDirectoryID id, Seconds timeout);

    /// The same for a name that the kernel looks up, where a listing no older than `age` told of it and the kernel was
    /// not given it yet. Nothing is known of a name that was not listed: a helper may know more names than it lists.
    std::optional<TreeEntry> told(Node& directory, const std::string& name, Seconds age);

    /// For a directory that is to go: asks the volume, and throws ENOTEMPTY unless nothing or hidden files alone are in
    /// it. `directory` is the item's node; null if the kernel does not know it.
    void refuseIfNotEmpty(const Node* directory, const fskit::FSItemPtr& item);

    /// What was listed is of a volume that is gone: lookups are told nothing from it. Listings that are being read go
    /// on as they are.
    void forgetRecent() { recent_.clear(); }

    /// For the end of a mount.
    void end() noexcept {
        open_.clear();
        recent_.clear();
    }

private:
    struct OpenDirectory {
        NodeID node = 0;
        std::shared_ptr<DirectorySnapshot> snapshot; // null: nothing to list
    };

    /// A listing that looked-up names are told from, also when the directory is open no more.
    struct Recent {
        NodeID node = 0;
        fskit::FSItemPtr item; // the directory's: another one is for another path
        std::uint64_t vanished = 0;
        std::shared_ptr<DirectorySnapshot> snapshot;
    };

    void keep(const Node& directory, const std::shared_ptr<DirectorySnapshot>& snapshot);
    void dropOld();
    Recent* recentOf(const Node& directory);
    std::optional<TreeEntry> show(Node& directory, const DirectorySnapshot& snapshot, const ListedEntry& entry);

    VolumeCalls& volume_;
    Nodes& nodes_;
    HiddenFiles& hidden_;
    Attributes& attributes_;
    Freshness& freshness_;
    OpenTable<OpenDirectoryID, OpenDirectory> open_;
    std::deque<Recent> recent_; // the latest last
};

} // namespace fusehost
