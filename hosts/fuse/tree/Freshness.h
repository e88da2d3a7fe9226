#pragma once

#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/Clock.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <cstdint>
#include <sys/stat.h>

namespace fusehost {

/// How fresh it is what is known of nodes. Changes made through the mount are counted, and a node bears the count of
/// its last one, so that a listing taken before is not believed. What was last shown of a node serves the next question
/// about it for a moment. Throws nothing.
class Freshness {
public:
    /// With an `attrTimeout` of 0 nothing known serves anybody.
    Freshness(Seconds attrTimeout, Clock clock);

    /// How long the kernel trusts attributes.
    Seconds attrTimeout() const { return attrTimeout_; }

    /// Changes so far. A node whose own count is higher than this was then is not what it was.
    std::uint64_t changes() const { return changes_; }

    void noteChange(Node& node) { node.changed = ++changes_; }

    /// What was last shown of any node is true no more.
    void forgetShown() { shown_ = {}; }

    void noteShown(const Node& node, const struct stat& attributes);
    /// What was last shown of the node came of a change of its attributes.
    void noteShownForChange(const Node& node);

    /// What was shown of the node just now and is still true; null if it is not known to be.
    const struct stat* shown(const Node& node) const;
    /// The same if it came of a change: the kernel asks once more before each change of owner, which mostly comes with
    /// other changes.
    const struct stat* shownForChange(const Node& node) const;

private:
    // Programs set time, owner and mode of a file one after the other; what the first change brought to light answers
    // those that change nothing.
    struct Shown {
        NodeID node = 0;
        std::uint64_t changed = 0; // the node's, when this was true
        std::chrono::steady_clock::time_point seen;

        struct stat attributes {};

        bool isForChange = false;
    };

    const Clock clock_;
    const Seconds attrTimeout_;
    std::uint64_t changes_ = 0;
    Shown shown_;
};

} // namespace fusehost
