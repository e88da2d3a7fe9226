#include "hosts/fuse/tree/Attributes.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

using fskit::FSItemAttributes;

Attributes::Attributes(VolumeCalls& volume, Nodes& nodes, Freshness& freshness, const AttributeMap& map)
    : volume_(volume), nodes_(nodes), freshness_(freshness), map_(map) {}

struct stat Attributes::get(Node& node) {
    const struct stat* shown = freshness_.shownForChange(node);
    return shown != nullptr ? *shown : ask(node);
}

struct stat Attributes::latest(Node& node) {
    const struct stat* shown = freshness_.shown(node);
    return shown != nullptr ? *shown : ask(node);
}

struct stat Attributes::known(const fskit::FSItemPtr& item) {
    const auto attributes = item->knownAttributes();
    return map_.map(attributes ? *attributes : volume_.getAttributes(item));
}

FSItemAttributes Attributes::set(const fskit::FSItemPtr& item, fskit::FSItemSetAttributesRequest& request) {
    return volume_.setAttributes(item, request);
}

struct stat Attributes::ask(Node& node) {
    if (!node.item) {
        const FoundItem found = nodes_.lookUpAgain(node);
        return show(node, found.attributes);
    }
    try {
        const FSItemAttributes attributes = volume_.getAttributes(node.item);
        if (attributes.type() == node.type)
            return show(node, attributes);
    } catch (const KernelError& error) {
        if (error.number() != ENOENT || node.id == rootNodeID)
            throw;
    }
    nodes_.dropVanished(node);
    throw KernelError(ESTALE);
}

struct stat Attributes::show(Node& node, const FSItemAttributes& attributes) {
    node.size = attributes.size();
    // A listing taken before knows less than the kernel is told now.
    if (!node.isDirectory())
        freshness_.noteChange(node);
    struct stat result = map_.map(attributes);
    if (node.hidden)
        result.st_nlink = 0;
    node.shownMode = static_cast<std::uint16_t>(result.st_mode);
    node.shownOwner = result.st_uid;
    freshness_.noteShown(node, result);
    return result;
}

TreeEntry Attributes::handOut(Node& node, const FSItemAttributes& attributes) {
    ++node.lookups;
    return {node.id, show(node, attributes)};
}

} // namespace fusehost
