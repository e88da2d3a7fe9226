#include "hosts/fuse/tree/AttributeChanges.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

using fskit::FSItemAttributes;
using fskit::FSItemPtr;

namespace {

// No helper gets any other: a file that runs as its owner would do so for everybody who reaches the served tree.
constexpr mode_t permissionBits = 0777;

} // namespace

AttributeChanges::AttributeChanges(Changes& changes, Nodes& nodes, Attributes& attributes, Resizing& resizing,
                                   bool isQuiet)
    : changes_(changes), nodes_(nodes), attributes_(attributes), resizing_(resizing), isQuiet_(isQuiet) {}

struct stat AttributeChanges::change(Node& node, const AttributeChange& change) {
    const FileChange begun(changes_);
    const FSItemPtr item = nodes_.itemOf(node);
    checkOwner(item, change);
    std::optional<struct stat> result;
    if (change.size)
        result = resizing_.changeSize(node, *change.size);
    if (change.mode || change.modifyTime)
        result = setModeAndTime(node, item, change);
    if (!result)
        result = attributes_.latest(node);
    changes_.freshness.noteShownForChange(node);
    return *result;
}

std::optional<struct stat> AttributeChanges::setModeAndTime(Node& node, const FSItemPtr& item,
                                                            const AttributeChange& change) {
    fskit::FSItemSetAttributesRequest request;
    if (change.mode) {
        request.setMode(*change.mode & permissionBits);
        node.isWriteProtected = (*change.mode & S_IWUSR) == 0;
    }
    if (change.modifyTime)
        request.setModifyTime(*change.modifyTime);
    changes_.freshness.noteChange(node);
    const FSItemAttributes attributes = attributes_.set(item, request);
    // The root is shown as the volume shows it, which is not what the helper says of it.
    if (node.id == rootNodeID)
        return std::nullopt;
    return attributes_.show(node, attributes);
}

void AttributeChanges::checkOwner(const FSItemPtr& item, const AttributeChange& change) {
    if (isQuiet_ || (!change.uid && !change.gid))
        return;
    const struct stat current = attributes_.known(item);
    if (change.uid.value_or(current.st_uid) != current.st_uid || change.gid.value_or(current.st_gid) != current.st_gid)
        throw KernelError(EPERM);
}

} // namespace fusehost
