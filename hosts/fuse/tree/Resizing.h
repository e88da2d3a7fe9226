#pragma once

#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/Contents.h"
#include "hosts/fuse/tree/Shrinking.h"

#include <cstdint>

namespace fusehost {

/// Changes of size. Failures are KernelErrors.
class Resizing {
public:
    Resizing(Nodes& nodes, VolumeHandles& handles, Attributes& attributes, Contents& contents, Shrinking& shrinking);

    /// EISDIR for a directory, EFBIG for more bytes than a file can have, EOPNOTSUPP where the size is not known,
    /// unless the file is emptied. What the kernel is shown of the node after the change. What is open may have to be
    /// opened again when next used; what no opener needs is closed.
    struct stat changeSize(Node& node, std::uint64_t size);

private:
    fskit::FSItemAttributes resize(Node& node, std::uint64_t size);

    Nodes& nodes_;
    VolumeHandles& handles_;
    Attributes& attributes_;
    Contents& contents_;
    Shrinking& shrinking_;
};

} // namespace fusehost
