#pragma once

#include "hosts/fuse/tree/OpenFiles.h"
#include "hosts/fuse/tree/Resizing.h"

namespace fusehost {

/// Opens files. Failures are KernelErrors.
class Opening {
public:
    Opening(Nodes& nodes, VolumeHandles& handles, Resizing& resizing, OpenFiles& files);

    /// As open(2) with these flags; empties the file with O_TRUNC. EISDIR for a directory. ESTALE if the file is gone,
    /// which may end the node. EOPNOTSUPP for O_APPEND to a file whose size is not known.
    OpenFileID open(Node& node, int flags);

    /// Takes a file that was just made for open. The volume opens its handles when they are first used: a file that is
    /// made and not written costs no more.
    OpenFileID openNew(Node& node, int flags) { return files_.add(node, flags); }

    /// Undoes an open that nobody is told of.
    void undo(OpenFileID id) { files_.release(id); }

private:
    bool hasUnknownSize(Node& node);
    void openInVolume(Node& node, fskit::FSVolumeOpenModes modes);

    Nodes& nodes_;
    VolumeHandles& handles_;
    Resizing& resizing_;
    OpenFiles& files_;
};

} // namespace fusehost
