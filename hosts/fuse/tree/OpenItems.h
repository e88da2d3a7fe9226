#pragma once

#include "fskit/FSVolume.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <cstddef>
#include <deque>
#include <unordered_map>
#include <vector>

namespace fusehost {

/// The one account of what a volume holds open for this mount: of which items, for which node, whether for writing, and
/// which of it nobody uses any more. Keeps account alone and asks nobody. Throws nothing but for want of memory.
///
/// A volume keeps what is open by identifier, and items that are not the same may share one: the second to come would
/// be served from what is open for the first. So at most one of them is in the account; the others are its rivals.
/// Items without an identifier have no rivals.
class OpenItems {
public:
    /// Another item of the same identifier that is open, and is to be closed first; null if there is none.
    fskit::FSItemPtr rivalOf(const fskit::FSItem& item) const;

    /// Something is open, or about to be, for the node's item, which must be there and have no rival.
    void enter(const Node& node);
    /// The same where it may be open for writing.
    void enterWriting(const Node& node);
    /// Nothing of the item is open for writing any more.
    void leaveWriting(const fskit::FSItem& item);
    /// Nothing of the item is open any more.
    void leave(const fskit::FSItem& item);
    /// Nothing at all is open any more, and nothing waits.
    void clear();

    bool mayBeWritten(const fskit::FSItem& item) const;
    /// The nodes of the items that may be open for writing, but for `item`, which may be null.
    std::vector<NodeID> writersBeside(const fskit::FSItem* item) const;
    /// The node for which the item is open: the one that writes it, or else the last that used it. 0 if not open.
    NodeID nodeOf(const fskit::FSItem& item) const;

    /// The item is open and nobody uses it: it waits to be closed. In the order of these calls.
    void addUnused(fskit::FSItemPtr item);
    bool isUnused(const fskit::FSItem& item) const;
    /// The one that waits longest, which then waits no more; null if none does.
    fskit::FSItemPtr takeUnused();
    void removeUnused(const fskit::FSItem& item);

    std::size_t unused() const { return unused_.size(); }

    /// Items of which something may be open.
    std::size_t size() const { return items_.size(); }

private:
    struct Open {
        fskit::FSItemPtr item;
        NodeID node = 0;
        bool isWritten = false;
    };

    using Items = std::unordered_multimap<fskit::FSItemID, Open>; // several only of items without an identifier

    Items::const_iterator find(const fskit::FSItem& item) const;
    Items::iterator find(const fskit::FSItem& item);
    Open& entered(const Node& node);

    Items items_;
    std::deque<fskit::FSItemPtr> unused_;
};

} // namespace fusehost
