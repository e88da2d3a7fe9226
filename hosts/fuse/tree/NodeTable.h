#pragma once

#include "fskit/FSItem.h"
#include "hosts/fuse/tree/NodeIndex.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fusehost {

/// What the kernel calls a node: a number that is never used twice in the life of a mount.
using NodeID = std::uint64_t;
inline constexpr NodeID rootNodeID = 1;

/// Whether the helper has been told to make safe what was written to a file.
enum class Safety : std::uint8_t {
    unknown, // nothing was written since the node is known
    due,     // something was, and the helper has not been told since
    told
};

/// An errno that nobody could be told when it arose, kept until somebody asks. The first of several is the one told.
class DeferredError {
public:
    void keep(int number) {
        if (number_ == 0)
            number_ = number;
    }

    /// What was kept, which is then forgotten; 0 if nothing was.
    int take() { return std::exchange(number_, 0); }

private:
    int number_ = 0;
};

/// One file or directory that the kernel knows of, or one on the way to it. Kept small, as a walk through a large tree
/// makes millions.
///
/// How long a `Node&` lives: until NodeTable deletes the node, which it does when nothing needs it any more. The
/// kernel's references, openers, being hidden and children that live keep a node, so that these alone can end it:
///
/// - `forget`, and `deleteIfUnused` after what kept the node is gone: with the node go ancestors kept for its sake;
/// - `move`, which ends a node that had the name already, and the former directory if it was kept for the node alone;
/// - whatever finds that a file has gone (`Nodes::find`, `lookUpAgain`, `itemOf`, `adopt`, `dropVanished`,
///   `Attributes::ask`): the node of that file, never its directory.
///
/// A node that a request names is held by the kernel until the request is answered. All others, such as the child of
/// some name, are to be taken for gone after a call that may end them; `NodeTable::find` tells by the id.
struct Node {
    // What is looked at when a node is looked for stands together.
    NodeID id = 0;
    Node* nextOfID = nullptr; // NodeTable's, as are the next two
    Node* nextOfName = nullptr;
    std::uint32_t nameHash = 0;
    fskit::FSItemType type : 8 = fskit::FSItemType::unknown;
    bool hidden = false;        // removed by name while open; lives on under a name of ours until its last close
    bool hasPlainPath = false;  // was last reported by the path of its folder and name: its item follows from them
    bool isUnconfirmed = false; // closed, and its volume has ended before it was made safe: the next fsync tells
    Node* parent = nullptr;     // null for the root and for a node that has lost its name
    std::string name;
    Node* firstChild = nullptr;
    Node* nextSibling = nullptr;
    Node* previousSibling = nullptr;
    std::shared_ptr<fskit::FSItem> item; // null until first needed, and again after a move; see Nodes::itemOf
    std::uint64_t lookups = 0;           // references that the kernel holds
    std::uint64_t size = 0;              // bytes, as the kernel was last told or has since written
    std::uint64_t changed = 0; // the count of Freshness when this node was last changed, or shown to the kernel
    std::uint32_t readers = 0; // open descriptions per mode
    std::uint32_t writers = 0;
    std::uint32_t unflushedWriters = 0; // writers that have not flushed since they last wrote or were opened
    DeferredError deferredError;        // to be reported by the next fsync, or flush of a writer
    Safety safety = Safety::unknown;
    bool isWriteProtected : 1 = false; // by a change of its mode: a handle that is given back may not be had again
    bool isItemMade : 1 = false;       // of its name and what a listing said of it, not told by the volume
    std::uint16_t shownMode = 0;       // type and permissions, as the kernel was last shown them; 0: not yet
    std::uint32_t shownOwner = 0;

    bool isDirectory() const { return type == fskit::FSItemType::directory; }

    bool isOpen() const { return readers + writers > 0; }

    bool hasName() const { return parent != nullptr || id == rootNodeID; }
};

/// All nodes of a mount. A node is (parent, name); paths are never stored. A node lives while the kernel holds a
/// reference, while it is open, and while it has children that live. Not thread-safe: it belongs to the thread that
/// executes the kernel's requests.
class NodeTable {
public:
    NodeTable();
    ~NodeTable();
    NodeTable(const NodeTable&) = delete;
    NodeTable& operator=(const NodeTable&) = delete;

    Node& root() { return *root_; }

    /// Null for an id that is not, or no longer, known.
    Node* find(NodeID id);
    /// Null if no node of that name is known in the directory.
    Node* child(const Node& directory, std::string_view name);
    /// The node of that name; a new one of unknown type if none is known. Not yet referenced by the kernel.
    Node& childOrNew(Node& directory, std::string_view name);

    /// Takes back references. A node that nothing needs any more is deleted, and so are ancestors kept for its sake.
    /// Unknown ids and too large counts are tolerated. Returns the item of the node if the kernel's last reference is
    /// gone and there was one.
    std::shared_ptr<fskit::FSItem> forget(NodeID id, std::uint64_t lookups);
    /// Deletes the node if nothing needs it.
    void deleteIfUnused(Node& node);

    /// Gives the node a new name. A node that has that name already loses it. Items of the node and of everything
    /// beneath it are dropped, since they stand for old paths.
    void move(Node& node, Node& directory, std::string_view name);
    /// Takes the node's name away: it was removed or replaced. It lives on only for the kernel's references. Its former
    /// directory, which whoever calls may go on using, lives until the next `forget` at least.
    void detach(Node& node);

    /// Whether a node was deleted whose file still has its name and something written to it that is not safe.
    bool hasForgottenDue() const { return forgottenDue_; }

    std::size_t size() const { return ids_.size(); }

    /// Calls `use(Node&)` for each node, in no order. It must end none.
    template <typename Use>
    void forEach(const Use& use) const {
        ids_.forEach(use);
    }

private:
    // Numbers are given out in turn, so that they spread over the slots as they are.
    struct ID {
        static std::size_t hash(const Node& node) { return node.id; }

        static Node*& next(Node& node) { return node.nextOfID; }
    };

    struct Name {
        static std::size_t hash(const Node& node) { return node.nameHash; }

        static Node*& next(Node& node) { return node.nextOfName; }
    };

    Node* childOfHash(const Node& directory, std::string_view name, std::uint32_t hash);
    void attach(Node& node, Node& directory, std::string_view name, std::uint32_t hash);
    void unlink(Node& node);
    bool isUnused(const Node& node) const;
    void deleteBereaved();
    void dropItemsBeneath(Node& node);
    void erase(Node& node);

    NodeIndex<ID> ids_; // all nodes, which are owned here
    NodeIndex<Name> names_;
    std::size_t erased_ = 0; // since free memory was last given back
    NodeID nextID_ = rootNodeID + 1;
    bool forgottenDue_ = false;
    std::vector<NodeID> bereaved_; // have lost a child that they may have been kept for
    Node* root_;
};

} // namespace fusehost
