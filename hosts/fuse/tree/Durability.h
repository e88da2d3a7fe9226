#pragma once

#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/VolumeHandles.h"

namespace fusehost {

/// Has the helper make safe what was written. The volume asks it to do so for the files that it holds write handles of
/// at that moment: all of them, up to the first failure, of which it does not say whose it is. Of what was written
/// through handles given back before it knows nothing. So the host keeps account of each file (`Safety`) and sees to it
/// that the volume holds the handle of the file that is meant, and no other. Failures are KernelErrors.
class Durability {
public:
    Durability(Nodes& nodes, VolumeHandles& handles, Attributes& attributes);

    /// For whoever has the file open: tells the error that waits to be told, or else makes the file safe. Returns when
    /// the helper was told to make safe what was written before, through whichever handle.
    void synchronize(Node& node);
    /// Has the helper make the file safe, this one alone where that can be. Closes what no opener of it needs.
    void makeSafe(Node& node);

private:
    void openToSynchronize(Node& node);

    Nodes& nodes_;
    VolumeHandles& handles_;
    Attributes& attributes_;
};

} // namespace fusehost
