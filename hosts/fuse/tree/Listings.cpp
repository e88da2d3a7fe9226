#include "hosts/fuse/tree/Listings.h"

#include "hosts/fuse/calls/KernelError.h"

#include <algorithm>
#include <cerrno>

namespace fusehost {
namespace {

/// A helper may list names alone. What it leaves out reads as an empty file of 1970, which is not to be believed.
bool tellsNothing(const ListedEntry& entry) {
    return entry.type == fskit::FSItemType::file && entry.attributes.size() == 0 &&
           entry.attributes.modifyTime().tv_sec == 0 && entry.attributes.modifyTime().tv_nsec == 0;
}

bool isDot(const ListedEntry& entry) {
    return entry.name == "." || entry.name == "..";
}

// What was changed through the mount since the listing was taken must not be shown, let alone cached, as it was then:
// an old size would make the kernel cut the file.
bool isStillTrue(const DirectorySnapshot& snapshot, const ListedEntry& entry, const Node& directory,
                 const Node* known) {
    if (known == nullptr)
        return directory.changed <= snapshot.changeCount();
    return known->changed <= snapshot.changeCount() && known->type == entry.type;
}

} // namespace

Listings::Listings(VolumeCalls& volume, Nodes& nodes, HiddenFiles& hidden, Attributes& attributes, Freshness& freshness)
    : volume_(volume), nodes_(nodes), hidden_(hidden), attributes_(attributes), freshness_(freshness) {}

OpenDirectoryID Listings::open(const Node& directory) {
    return open_.add({directory.id, nullptr});
}

void Listings::start(OpenDirectoryID id) {
    OpenDirectory& open = open_.at(id);
    Node& directory = nodes_.at(open.node);
    open.snapshot.reset();
    if (!directory.hasName())
        return; // removed while open: an empty listing, as on any disk
    open.snapshot = std::make_unique<DirectorySnapshot>(volume_, nodes_.itemOf(directory), freshness_.changes());
}

std::size_t Listings::count(OpenDirectoryID id) {
    const OpenDirectory& open = open_.at(id);
    return open.snapshot ? open.snapshot->entries().size() : 0;
}

const ListedEntry* Listings::entry(OpenDirectoryID id, std::size_t index) {
    const OpenDirectory& open = open_.at(id);
    const ListedEntry& entry = open.snapshot->entries().at(index);
    return hidden_.isHidden(nodes_.at(open.node), entry.name) ? nullptr : &entry;
}

std::optional<TreeEntry> Listings::node(OpenDirectoryID id, const ListedEntry& entry) {
    const OpenDirectory& open = open_.at(id);
    Node& directory = nodes_.at(open.node);
    const DirectorySnapshot& snapshot = *open.snapshot;
    if (isDot(entry) || !directory.hasName() || remainingTrust(id, freshness_.attrTimeout()) <= Seconds(0))
        return std::nullopt;
    if (tellsNothing(entry) || !isStillTrue(snapshot, entry, directory, nodes_.child(directory, entry.name)))
        return std::nullopt;
    Node& node = nodes_.adoptListed(directory, entry);
    const TreeEntry handedOut = attributes_.handOut(node, entry.attributes);
    node.changed = snapshot.changeCount(); // the kernel now knows what was true then
    return handedOut;
}

Seconds Listings::remainingTrust(OpenDirectoryID id, Seconds timeout) {
    const OpenDirectory& open = open_.at(id);
    return open.snapshot ? std::max(Seconds(0), timeout - Seconds(open.snapshot->age())) : Seconds(0);
}

void Listings::refuseIfNotEmpty(const Node* directory, const fskit::FSItemPtr& item) {
    const DirectorySnapshot snapshot(volume_, item, freshness_.changes());
    if (snapshot.leftNamesOut())
        throw KernelError(ENOTEMPTY);
    for (const ListedEntry& entry : snapshot.entries())
        if (!isDot(entry) && (directory == nullptr || !hidden_.isHidden(*directory, entry.name)))
            throw KernelError(ENOTEMPTY);
}

} // namespace fusehost
