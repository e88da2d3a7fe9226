#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/monitor/TreeGauges.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/AttributeChange.h"
#include "hosts/fuse/tree/Clock.h"
#include "hosts/fuse/tree/DirectorySnapshot.h"
#include "hosts/fuse/tree/IdleWork.h"
#include "hosts/fuse/tree/NodeTable.h"
#include "hosts/fuse/tree/OpenIDs.h"
#include "hosts/fuse/tree/ToForget.h"
#include "hosts/fuse/tree/TreeEntry.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace fusehost {

/// A Unix file tree over a volume: closes the gap between what a kernel expects of a file system and what the volume's
/// simple rules give, with the volume's own operations. Knows nothing of FUSE; every failure is a KernelError. ESTALE
/// is the answer for a node that is unknown or whose file has gone, EBADF for what is not open, ENOTDIR where a
/// directory is needed.
///
/// This is the front: it finds the nodes that an operation names and hands them to the room whose rules it needs.
///
/// Not thread-safe: one thread executes all operations, one after the other. That is what keeps a sequence of several
/// requests (a create, a rename, a change of size) whole.
class FileTree final : public IdleWork {
public:
    /// Both must live longer. `clock` must never go back.
    FileTree(VolumeCalls& volume, const MountOptions& options, Clock clock = std::chrono::steady_clock::now);
    ~FileTree() override;
    FileTree(const FileTree&) = delete;
    FileTree& operator=(const FileTree&) = delete;

    /// Read handles that nobody uses any more are given back when there is nothing else to do.
    bool isPending() const override;
    void doNext() noexcept override;
    /// The next block of a file is being read.
    bool isUnderWay() override;

    /// Activates the volume.
    void begin();
    /// Gives back what waits to be given back, and removes the files that live only because they are open. Never
    /// throws; for the end of a mount.
    void end() noexcept;

    // Another volume in the place of the one that the tree shows (VolumeChange), between two requests
    /// For a volume that is to go in good order: has it make safe what is written, and gives back what is open.
    void leaveVolume() noexcept;
    /// For one that has ended by itself: what was written and not made safe is told as an error by the file's next
    /// fsync, or close of one that writes it.
    void loseVolume();
    /// Activates the volume that `VolumeCalls::replace` has put in the place of the one before, and forgets all that it
    /// knew of that. What the kernel has in hand goes on: nodes, open files and directories. ESTALE is the answer for
    /// an open file whose name is gone.
    void takeVolume();

    // Permissions (Permissions): where the kernel does not check them, for what is then asked for by `caller`
    /// EACCES unless all of `wanted` (R_OK, W_OK, X_OK) is allowed.
    void checkAccess(uid_t caller, NodeID node, int wanted);
    /// The same for names in a directory; ENOTDIR if it is none.
    void checkDirectoryAccess(uid_t caller, NodeID directory, int wanted);
    /// EPERM unless the caller may make changes that are the owner's.
    void checkOwner(uid_t caller, NodeID node);

    // Lookup and attributes (Lookup, Attributes, AttributeChanges)
    TreeEntry lookup(NodeID directory, const std::string& name);
    /// The kernel is about to be told that it may remember the absence of a name, just looked up. False if it must not.
    bool noteToldAbsence(NodeID directory, const std::string& name);
    /// The kernel gives back references, or never got an entry that was handed out.
    void forget(NodeID node, std::uint64_t lookups);
    struct stat getAttributes(NodeID node);
    /// What was shown of any node a moment ago answers no more questions.
    void forgetShown();
    struct stat setAttributes(NodeID node, const AttributeChange& change);
    std::string readSymbolicLink(NodeID node);

    // Open files (Opening, OpenFiles, FileAccess, Durability)
    OpenFileID open(NodeID node, int flags);
    /// Whether there is to be read from it until a read is empty, whatever size is shown.
    bool isOfUnknownSize(OpenFileID file) const;
    std::size_t read(OpenFileID file, std::int64_t offset, std::span<std::byte> into);
    /// In as many requests as it takes. Fewer bytes than given if a later request fails.
    std::size_t write(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents);
    /// Writes pages that the kernel held, as many of them as can be written. A failure is also told by the next fsync
    /// of the file, or flush of one that writes it, whoever holds it.
    void writePages(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents);
    /// Returns when the helper was told to make safe what was written to the file before, through whichever handle.
    void synchronize(OpenFileID file);
    /// A descriptor of the file was closed; other descriptors may still share it.
    void flush(OpenFileID file);
    void release(OpenFileID file);
    /// The files that are open for writing and have a name: of them alone the kernel may hold changed pages.
    std::vector<NodeID> writtenNodes();

    // Directories (Listings)
    OpenDirectoryID openDirectory(NodeID node);
    void releaseDirectory(OpenDirectoryID directory);
    /// Takes the snapshot that the listing is served from; anew for every listing from the start.
    void startListing(OpenDirectoryID directory);
    std::size_t listedCount(OpenDirectoryID directory);
    /// Entry `index` of the listing, less than its count; null for a name that is not to be shown.
    const ListedEntry* listedEntry(OpenDirectoryID directory, std::size_t index);
    /// The entry as a node handed to the kernel, where the listing still tells the truth about it; otherwise absent.
    std::optional<TreeEntry> listedNode(OpenDirectoryID directory, const ListedEntry& entry);
    /// How long the listing's attributes may still be trusted, of `timeout`.
    Seconds remainingTrust(OpenDirectoryID directory, Seconds timeout);

    // Names (Creation, Removal, Renaming)
    /// Creates and opens. Never empties an existing file unless `flags` say so. `mode` has the umask applied already.
    std::pair<TreeEntry, OpenFileID> create(NodeID directory, const std::string& name, int flags, mode_t mode);
    TreeEntry makeNode(NodeID directory, const std::string& name, mode_t mode);
    TreeEntry makeDirectory(NodeID directory, const std::string& name, mode_t mode);
    TreeEntry makeSymbolicLink(NodeID directory, const std::string& name, const std::string& contents);
    TreeEntry makeLink(NodeID node, NodeID directory, const std::string& name);
    void removeFile(NodeID directory, const std::string& name);
    void removeDirectory(NodeID directory, const std::string& name);
    void rename(NodeID directory, const std::string& name, NodeID newDirectory, const std::string& newName,
                unsigned flags);

    // Changes behind the mount (OutsideChanges)
    /// Something was changed at these paths of the served tree, or beneath them, by somebody else. From now on it is
    /// asked for anew; what the kernel is to be told to forget is returned.
    ToForget noteOutsideChanges(const std::vector<std::string>& paths);

    // The volume
    fskit::FSStatFSResult statistics() const;
    std::size_t maximumNameLength() const;

    // What it is at, for whoever watches
    /// The path of a node, or of a name in it, as `pathOf` writes it; empty if there is no such node.
    std::string_view describe(NodeID node, std::string_view name, std::span<char> room);
    TreeGauges gauges() const;

    // For tests
    const NodeTable& nodes() const;
    /// Items of which something may be open in the volume.
    std::size_t openItems() const;

private:
    struct Rooms;
    std::unique_ptr<Rooms> rooms_;
};

} // namespace fusehost
