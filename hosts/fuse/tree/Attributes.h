#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/AttributeMap.h"
#include "hosts/fuse/tree/Freshness.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/TreeEntry.h"

#include <sys/stat.h>

namespace fusehost {

/// What the kernel is shown of nodes. All attributes that it gets pass through here, so that the tree knows what the
/// kernel knows. Failures are KernelErrors.
class Attributes {
public:
    Attributes(VolumeCalls& volume, Nodes& nodes, Freshness& freshness, const AttributeMap& map);

    /// For the kernel's own question. Asks the volume, unless a change of the node's attributes was just answered.
    struct stat get(Node& node);
    /// Asks the volume. ESTALE if the file is gone or has become something else, which may end the node.
    struct stat ask(Node& node);
    /// What was shown of the node just now; otherwise asks, as `ask` does.
    struct stat latest(Node& node);
    /// What the kernel would be shown of the item, by what is known of it; asks only where that is nothing.
    struct stat known(const fskit::FSItemPtr& item);
    /// Sets attributes other than the size. The volume's attributes after that, which are to be shown.
    fskit::FSItemAttributes set(const fskit::FSItemPtr& item, fskit::FSItemSetAttributesRequest& request);

    /// Shows the kernel what the volume has said of the node.
    struct stat show(Node& node, const fskit::FSItemAttributes& attributes);
    /// The same with the node, of which the kernel then holds one reference more.
    TreeEntry handOut(Node& node, const fskit::FSItemAttributes& attributes);

private:
    VolumeCalls& volume_;
    Nodes& nodes_;
    Freshness& freshness_;
    const AttributeMap& map_;
};

} // namespace fusehost
