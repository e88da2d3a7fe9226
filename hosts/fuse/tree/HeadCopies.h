#pragma once

#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/HiddenNames.h"
#include "hosts/fuse/tree/NewItems.h"
#include "hosts/fuse/tree/Nodes.h"

#include <string>

namespace fusehost {

/// The files that hold the head of another one while that is made shorter: beside it, readable for their owner alone,
/// under names that say what they are. They are nodes like others, which the kernel knows nothing of.
class HeadCopies {
public:
    HeadCopies(Changes& changes, Nodes& nodes, NewItems& newItems, HiddenNames& names);

    /// An empty file beside the node's. Throws KernelError.
    Node& make(Node& node);
    /// Removes the copy, which ends it. A failure is logged.
    void drop(Node& copy);
    /// True if the copy is now the node's file, and no node any more. Otherwise all is as it was.
    bool putInPlace(Node& copy, Node& node);
    /// For whoever needs it: the copy shows like any other file from now on, and a log line tells. Ends the node.
    void leave(Node& copy, const Node& node);

private:
    std::string nameFor(const Node& node);

    Changes& changes_;
    Nodes& nodes_;
    NewItems& newItems_;
    HiddenNames& names_;
};

} // namespace fusehost
