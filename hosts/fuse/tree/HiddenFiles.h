#pragma once

#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/HiddenNames.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/VolumeHandles.h"

#include <cstddef>
#include <string>
#include <vector>

namespace fusehost {

/// Files that are removed or replaced while open. Such a file must live on until its last close, but the volume knows
/// files by path alone. So it is given a name of ours, which is never listed nor looked up, and removed when nobody has
/// it open. Failures are KernelErrors.
class HiddenFiles {
public:
    HiddenFiles(Nodes& nodes, VolumeHandles& handles, Freshness& freshness, HiddenNames& names);

    /// Whether the name is that of a hidden file of this mount.
    bool isHidden(const Node& directory, const std::string& name) const;
    /// ENOENT for a name that is.
    void refuseHidden(const Node& directory, const std::string& name) const;

    /// Gives the node's file a name of ours. Where that fails the file has its name still.
    void hide(const NameChange&, Node& node);
    /// Undoes `hide`. If that fails, or the name is taken again, the file keeps the name that `hide` gave it, in plain
    /// sight; a log line tells.
    void showAgain(const NameChange&, Node& node, const std::string& name);
    /// Moves the hidden files of a directory that is to be removed into the one above it.
    void moveOut(const NameChange&, Node& directory);
    /// Removes the file, which nobody has open any more. A failure is logged. May end the node, and the directory's.
    /// Where the volume has ended the node stays, for `removeUnused`.
    void remove(Node& node);
    /// For another volume: removes those that nobody has open any more.
    void removeUnused();

    /// How many there are.
    std::size_t count() const { return count_; }

private:
    void setHidden(Node& node);
    void setPlain(Node& node);
    void moveTo(Node& node, Node& directory, const std::string& name);

    Nodes& nodes_;
    VolumeHandles& handles_;
    Freshness& freshness_;
    HiddenNames& names_;
    std::size_t count_ = 0;
    std::vector<NodeID> unused_; // to be removed when there is a volume that answers
};

} // namespace fusehost
