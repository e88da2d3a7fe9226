#pragma once

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/AttributeMap.h"
#include "hosts/fuse/tree/ByteSpool.h"
#include "hosts/fuse/tree/DirectorySnapshot.h"
#include "hosts/fuse/tree/IdleWork.h"
#include "hosts/fuse/tree/NodeTable.h"
#include "hosts/fuse/tree/OpenIDs.h"
#include "hosts/fuse/tree/ReadAhead.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace fusehost {

/// A node handed to the kernel with its attributes; one reference is counted.
struct TreeEntry {
    NodeID node = 0;

    struct stat attributes {};
};

/// A change of attributes; absent members stay as they are.
struct AttributeChange {
    std::optional<std::uint64_t> size;
    std::optional<mode_t> mode;
    std::optional<uid_t> uid;
    std::optional<gid_t> gid;
    std::optional<timespec> modifyTime;
};

/// A Unix file tree over a volume: closes the gap between what a kernel expects of a file system and what the volume's
/// simple rules give, with the volume's own operations. Knows nothing of FUSE; every failure is a KernelError.
///
/// Not thread-safe: one thread executes all operations, one after the other. That is what keeps a sequence of several
/// requests (a create, a rename, a change of size) whole.
class FileTree final : public IdleWork {
public:
    FileTree(VolumeCalls& volume, const MountOptions& options);
    ~FileTree() override;
    FileTree(const FileTree&) = delete;
    FileTree& operator=(const FileTree&) = delete;

    /// Read handles that nobody uses any more are given back when there is nothing else to do.
    bool isPending() const override { return !unused_.empty(); }

    void doNext() noexcept override;

    /// Activates the volume.
    void begin();
    /// Removes the files that live only because they are open. Never throws; for the end of a mount.
    void end() noexcept;

    // Lookup and attributes (FileTree.cpp, FileTree+Attributes.cpp)
    TreeEntry lookup(NodeID directory, const std::string& name);
    /// The kernel gives back references, or never got an entry that was handed out.
    void forget(NodeID node, std::uint64_t lookups);
    struct stat getAttributes(NodeID node);
    struct stat setAttributes(NodeID node, const AttributeChange& change);
    std::string readSymbolicLink(NodeID node);

    // Open files (FileTree+Files.cpp)
    OpenFileID open(NodeID node, int flags);
    std::size_t read(OpenFileID file, std::int64_t offset, std::span<std::byte> into);
    /// In as many requests as it takes. Fewer bytes than given if a later request fails.
    std::size_t write(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents);
    /// A descriptor of the file was closed; other descriptors may still share the handle.
    void flush(OpenFileID file);
    void release(OpenFileID file);
    /// The files that are open for writing and have a name: of them alone the kernel may hold changed pages, since it
    /// writes those when a file is closed and when a map of it is let go.
    std::vector<NodeID> writtenNodes();

    /// Writes pages that the kernel held, as many of them as can be written. A failure is also told by the next fsync
    /// of the file, or flush of one that writes it, whoever holds it.
    void writePages(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents);
    /// Returns when the helper was told to make safe what was written to the file before, through whichever handle.
    /// (FileTree+Durability.cpp)
    void synchronize(OpenFileID file);

    // Directories (FileTree+Directories.cpp)
    OpenDirectoryID openDirectory(NodeID node);
    void releaseDirectory(OpenDirectoryID directory);
    /// Takes the snapshot that the listing is served from; anew for every listing from the start.
    void startListing(OpenDirectoryID directory);
    /// Entry `index` of the listing; null at its end and for a name that is not to be shown.
    const ListedEntry* listedEntry(OpenDirectoryID directory, std::size_t index);
    std::size_t listedCount(OpenDirectoryID directory);
    /// The entry as a node handed to the kernel, where the listing still tells the truth about it; otherwise absent.
    std::optional<TreeEntry> listedNode(OpenDirectoryID directory, const ListedEntry& entry);
    /// How long the listing's attributes may still be trusted, of `timeout`.
    Seconds remainingTrust(OpenDirectoryID directory, Seconds timeout);

    // Names (FileTree+Names.cpp)
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

    fskit::FSStatFSResult statistics() const { return volume_.statistics(); }

    std::size_t maximumNameLength() const { return volume_.maximumNameLength(); }

    const NodeTable& nodes() const { return nodes_; }

private:
    /// For how long an answer of the helper also serves the request that follows it. Short: for so long a change made
    /// behind the mount goes unnoticed, and a file made there under the very name of a create would be emptied.
    static constexpr std::chrono::milliseconds briefTrust{20};

    struct OpenFile {
        NodeID node = 0;
        bool reads = false;
        bool writes = false;
        bool flushed = false;      // has flushed and not written since
        std::int64_t readEnd = -1; // where the last read ended
    };

    struct OpenDirectory {
        NodeID node = 0;
        std::unique_ptr<DirectorySnapshot> snapshot; // null: nothing to list
    };

    /// A name that the lookup just before has found missing: spares the create that follows it the same question.
    struct Absence {
        NodeID directory = 0;
        std::string name;
        std::chrono::steady_clock::time_point seen;
    };

    /// What was last shown of a node. Programs set time, owner and mode of a file one after the other; what the first
    /// change brought to light answers those that change nothing.
    struct Recent {
        NodeID node = 0;
        std::uint64_t changed = 0; // the node's, when this was true
        std::chrono::steady_clock::time_point seen;

        struct stat attributes {};

        bool isOfAChange = false;
    };

    /// A name resolved for a change: its item, and its node if the kernel knows it.
    struct Resolved {
        Node* node = nullptr;
        fskit::FSItemPtr item;
        bool isDirectory = false;
    };

    // Nodes and items (FileTree.cpp)
    Node& nodeAt(NodeID id);
    Node& directoryAt(NodeID id);
    /// The node's item, made or looked up if the node has none. ESTALE if the node has lost its name or its file.
    const fskit::FSItemPtr& itemOf(Node& node);
    /// The node's item as the volume makes it of its name; null if it does not, or if that is not known to be the item.
    fskit::FSItemPtr makeItem(Node& node);
    /// Gives the node the item that was found by its name.
    void setItem(Node& node, const FoundItem& found);
    FoundItem lookUpAgain(Node& node);
    FoundItem findChild(Node& directory, const std::string& name);
    Resolved resolve(Node& directory, const std::string& name);
    /// The node for what a lookup or a creation has found.
    Node& adopt(Node& directory, const FoundItem& found);
    TreeEntry handOut(Node& node, const fskit::FSItemAttributes& attributes);
    struct stat shown(Node& node, const fskit::FSItemAttributes& attributes);
    bool isRecent(const Node& node) const;
    void checkName(const std::string& name) const;

    void noteChange(Node& node) { node.changed = ++changes_; }

    /// Forgets a node whose file is gone or has become something else.
    void dropVanished(Node& node);

    // Attributes and sizes (FileTree+Attributes.cpp)
    struct stat askForAttributes(Node& node);
    void checkOwner(const fskit::FSItemPtr& item, const AttributeChange& change);
    struct stat changeSize(Node& node, std::uint64_t size);
    fskit::FSItemAttributes makeEmpty(Node& node);
    fskit::FSItemAttributes resize(Node& node, std::uint64_t size);
    void grow(Node& node, std::uint64_t size);

    // Shrinking (FileTree+Shrinking.cpp)
    void shrink(Node& node, std::uint64_t size);
    void readHead(Node& node, std::uint64_t size, ByteSpool& head);
    void writeHead(Node& node, ByteSpool& head);
    /// Makes a file beside the node's that holds the head and is safe with the helper. Null where none is needed, or
    /// can be made.
    Node* copyHead(Node& node, ByteSpool& head);
    std::string copyName(const Node& node);
    void dropCopy(Node& copy);
    void replaceByHead(Node& node, ByteSpool& head);
    /// After `replaceByHead` has failed: has the file hold the head and nothing else, or, where it lost some of it, the
    /// copy take its place; otherwise throws `failure`. Consumes the copy.
    void restoreHead(Node& node, ByteSpool& head, Node* copy, const KernelError& failure);
    std::uint64_t sizeNow(Node& node);
    /// True if the copy is now the node's file, and no node any more.
    bool putInPlace(Node& copy, Node& node);
    /// For whoever needs it: it shows like any other file from now on.
    void leaveCopy(Node& copy, const Node& node);

    // Open files (FileTree+Files.cpp)
    OpenFile& fileAt(OpenFileID id);
    OpenFileID addOpenFile(Node& node, int flags);
    void openHandles(Node& node, fskit::FSVolumeOpenModes modes);
    Node& writtenAt(OpenFileID id);
    /// The part of `contents` from `start` on that goes in one request.
    std::span<const std::byte> pieceAt(std::span<const std::byte> contents, std::size_t start) const;
    void readOn(OpenFile& file, Node& node, std::int64_t offset, std::size_t size);
    std::size_t readWhole(Node& node, std::int64_t offset, std::span<std::byte> into);
    void writeWhole(Node& node, std::int64_t offset, std::span<const std::byte> contents);
    fskit::FSVolumeOpenModes modesFor(int flags) const;
    /// Gives the read handles back that wait for an idle moment: all of them, before names or files change.
    void closeUnusedReaders() noexcept;
    void closeUnusedReader(const fskit::FSItemPtr& item) noexcept;
    /// Closes what is open for the item, because another one with its identifier is to be opened.
    void giveWay(const fskit::FSItemPtr& item);
    /// Closes in the volume what no opener of the node needs.
    void closeUnused(Node& node);
    void closeWhenIdle(Node& node);
    /// The same where nobody is left to be told of a failure, or another one is to be reported: it is logged.
    void closeQuietly(Node& node) noexcept;
    /// Closes what is open at the node, needed or not. A failure is kept for the file's next flush.
    void closeEverything(Node& node);
    /// Closes everything that is open at the node and beneath it: the volume's handles are tied to paths. They open
    /// again when next used. A failure is kept for the file's next flush.
    void closeForMove(Node& node);

    // Durability (FileTree+Durability.cpp)
    /// Has the helper make the file safe, this one alone where that can be. Closes what no opener of it needs.
    void makeSafe(Node& node);
    void openToSynchronize(Node& node);
    /// The other nodes whose write handles the volume may hold.
    std::vector<Node*> otherWriters(const Node& node);
    void closeOtherWriters(const Node& node);
    /// Keeps an error for the file's next flush or fsync; the first one counts.
    static void deferError(Node& node, const KernelError& error);

    // Directories (FileTree+Directories.cpp)
    OpenDirectory& openDirectoryAt(OpenDirectoryID id);
    void refuseIfNotEmpty(Node* directory, const fskit::FSItemPtr& item);

    // Names (FileTree+Names.cpp)
    std::optional<FoundItem> existing(Node& directory, const std::string& name);
    FoundItem createNew(Node& directory, const std::string& name, fskit::FSItemType type, mode_t mode);
    void applyCreationMode(const FoundItem& made, mode_t mode);
    std::pair<TreeEntry, OpenFileID> openExisting(Node& node, const fskit::FSItemAttributes& found, int flags);
    void checkReplaceable(bool movesDirectory, Node& to, const std::string& newName);
    void renameOver(const fskit::FSItemPtr& item, Node& from, const std::string& name, Node& to,
                    const std::string& newName, bool movesDirectory);

    /// What has the name that a rename was refused for; throws the refusal if nothing has.
    FoundItem toBeReplaced(Node& directory, const std::string& name, const KernelError& refusal);

    // Hidden files (FileTree+Hidden.cpp)
    bool isHidden(const Node& directory, const std::string& name);
    void hide(Node& node);
    /// Whether the helper knows the name now. Throws if it does not tell.
    bool isTaken(Node& directory, const std::string& name);
    /// Undoes `hide`. If that fails, or the name is taken again, the file keeps the name that `hide` gave it, in plain
    /// sight; a log line tells.
    void showAgain(Node& node, const std::string& name);
    void moveHiddenOut(Node& directory);
    void removeHidden(Node& node);
    /// Logs errors of writing that no program was told yet.
    void tellUntoldErrors();
    void moveTo(Node& node, Node& directory, const std::string& name);
    std::string hiddenName();

    VolumeCalls& volume_;
    AttributeMap attributeMap_;
    NodeTable nodes_;
    ReadAhead readAhead_;
    std::unordered_map<OpenFileID, OpenFile> files_;
    std::unordered_map<OpenDirectoryID, OpenDirectory> directories_;
    std::deque<fskit::FSItemPtr> unused_; // files read and closed, whose handle is still to be given back
    std::uint64_t nextOpen_ = 1;
    std::uint64_t changes_ = 0; // counts changes made through the mount
    std::optional<Absence> absence_;
    Recent recent_;
    TemporaryFolder temporaryFolder_;
    std::string hiddenPrefix_; // begins every hidden name of this mount
    std::uint64_t nextHidden_ = 1;
    Seconds attrTimeout_;
    // Whether a create may rely on the lookup before it. Not with timeouts of 0, and not where the kernel itself
    // remembers absent names: it then creates without a lookup, and the last one may be long past.
    bool trustsAbsence_;
    std::uint32_t requestSize_;
    bool quiet_;
    bool writeback_;
};

} // namespace fusehost
