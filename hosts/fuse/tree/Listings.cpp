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

// A few megabytes, which stay until something is listed or looked up again. A walk goes back to the folders that it
// came through.
constexpr std::size_t mostRecentEntries = 16384;

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
    open.snapshot = std::make_shared<DirectorySnapshot>(volume_, nodes_.itemOf(directory), freshness_.changes());
    keep(directory, open.snapshot);
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
    return show(nodes_.at(open.node), *open.snapshot, entry);
}

std::optional<TreeEntry> Listings::told(Node& directory, const std::string& name, Seconds age) {
    dropOld();
    Recent* recent = recentOf(directory);
    if (recent == nullptr || recent->snapshot->age() >= age)
        return std::nullopt;
    const ListedEntry* entry = recent->snapshot->untold(name);
    return entry != nullptr ? show(directory, *recent->snapshot, *entry) : std::nullopt;
}

std::optional<TreeEntry> Listings::show(Node& directory, const DirectorySnapshot& snapshot, const ListedEntry& entry) {
    const std::chrono::nanoseconds age = snapshot.age();
    if (isDot(entry) || !directory.hasName() || age >= freshness_.attrTimeout())
        return std::nullopt;
    if (tellsNothing(entry) || !isStillTrue(snapshot, entry, directory, nodes_.child(directory, entry.name)))
        return std::nullopt;
    Node& node = nodes_.adoptListed(directory, entry);
    TreeEntry handedOut = attributes_.handOut(node, entry.attributes);
    node.changed = snapshot.changeCount(); // the kernel now knows what was true then
    entry.isTold = true;
    handedOut.age = age;
    return handedOut;
}

void Listings::keep(const Node& directory, const std::shared_ptr<DirectorySnapshot>& snapshot) {
    dropOld();
    std::erase_if(recent_, [&](const Recent& recent) { return recent.node == directory.id; });
    if (snapshot->entries().size() > mostRecentEntries)
        return;
    recent_.push_back({directory.id, directory.item, nodes_.vanished(), snapshot});
    std::size_t entries = 0;
    for (const Recent& recent : recent_)
        entries += recent.snapshot->entries().size();
    for (; entries > mostRecentEntries; recent_.pop_front())
        entries -= recent_.front().snapshot->entries().size();
}

// What has vanished behind the mount may be in a listing, and makes the kernel look its name up once more.
void Listings::dropOld() {
    while (!recent_.empty() && (recent_.front().snapshot->age() >= freshness_.attrTimeout() ||
                                recent_.front().vanished != nodes_.vanished()))
        recent_.pop_front();
}

Listings::Recent* Listings::recentOf(const Node& directory) {
    for (Recent& recent : recent_)
        if (recent.node == directory.id && recent.item == directory.item)
            return &recent;
    return nullptr;
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
