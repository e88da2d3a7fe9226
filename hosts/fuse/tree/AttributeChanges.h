#pragma once

#include "hosts/fuse/tree/AttributeChange.h"
#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/Resizing.h"

#include <optional>
#include <sys/stat.h>

namespace fusehost {

/// Carries changes of attributes out. No volume changes owners: asked for another one, it is an error or, where the
/// mount is quiet about that, nothing.
class AttributeChanges {
public:
    AttributeChanges(Changes& changes, Nodes& nodes, Attributes& attributes, Resizing& resizing, bool isQuiet);

    /// What the kernel is shown of the node after the change. Throws KernelError.
    struct stat change(Node& node, const AttributeChange& change);

private:
    void checkOwner(const fskit::FSItemPtr& item, const AttributeChange& change);
    std::optional<struct stat> setModeAndTime(Node& node, const fskit::FSItemPtr& item, const AttributeChange& change);

    Changes& changes_;
    Nodes& nodes_;
    Attributes& attributes_;
    Resizing& resizing_;
    const bool isQuiet_;
};

} // namespace fusehost
