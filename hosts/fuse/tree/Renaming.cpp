#include "hosts/fuse/tree/Renaming.h"

#include <cerrno>
#include <cstdio>
#include <optional>

namespace fusehost {

using fskit::FSItemType;

Renaming::Renaming(Changes& changes, Nodes& nodes, HiddenFiles& hidden, Listings& listings)
    : changes_(changes), nodes_(nodes), hidden_(hidden), listings_(listings) {}

void Renaming::rename(Node& from, const std::string& name, Node& to, const std::string& newName, unsigned flags) {
    NameChange change(changes_, from, to);
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0)
        throw KernelError(EINVAL);
    nodes_.checkName(newName);
    nodes_.checkName(name);
    hidden_.refuseHidden(from, name);
    const Nodes::Resolved source = nodes_.resolve(from, name);
    const Place newPlace{to, newName};
    if (hidden_.isHidden(to, newName) || ((flags & RENAME_NOREPLACE) != 0 && change.existing(nodes_, to, newName)))
        throw KernelError(EEXIST);
    const Node* target = nodes_.child(to, newName);
    if (target != nullptr && target == source.node)
        return;
    checkReplaceable(change, source.isDirectory, newPlace);
    replace(change, source, {from, name}, newPlace);
    noteRenamed(change, source.node, newPlace);
}

// A directory may replace an empty directory and nothing else, a file may replace files. Not every helper's rename sees
// to that, so for a directory the target is looked at. For a file, what is known of the target must do: the kernel has
// just looked it up, and renaming a file over another is what programs do to save it.
void Renaming::checkReplaceable(NameChange& change, bool movesDirectory, const Place& to) {
    if (!movesDirectory) {
        if (const Node* known = nodes_.child(to.directory, to.name); known != nullptr && known->isDirectory())
            throw KernelError(EISDIR);
        return;
    }
    const std::optional<FoundItem> replaced = change.existing(nodes_, to.directory, to.name);
    if (!replaced)
        return;
    if (replaced->attributes.type() != FSItemType::directory)
        throw KernelError(ENOTDIR);
    listings_.refuseIfNotEmpty(nodes_.child(to.directory, to.name), replaced->item);
}

void Renaming::replace(NameChange& change, const Nodes::Resolved& source, const Place& from, const Place& to) {
    Node* target = nodes_.child(to.directory, to.name);
    if (source.node != nullptr)
        changes_.handles.closeForMove(*source.node);
    const bool targetLivesOn = target != nullptr && target->isOpen();
    if (targetLivesOn)
        hidden_.hide(change, *target);
    else if (target != nullptr)
        hidden_.moveOut(change, *target);
    try {
        renameOver(change, source, from, to);
    } catch (const KernelError&) {
        if (targetLivesOn)
            hidden_.showAgain(change, *target, to.name);
        throw;
    }
}

void Renaming::noteRenamed(const NameChange& change, Node* node, const Place& to) {
    if (node != nullptr) {
        change.note(*node);
        nodes_.move(*node, to.directory, to.name);
    } else if (Node* replaced = nodes_.child(to.directory, to.name)) {
        nodes_.drop(*replaced);
    }
}

namespace {

/// Whether a helper that cannot replace may have said so by this. Not every one has a word for it.
bool mayRefuseToReplace(int error) {
    return error == EEXIST || error == EIO || error == EPERM || error == ENOTEMPTY || error == EINVAL;
}

} // namespace

// A helper that replaces atomically is let do so.
void Renaming::renameOver(const NameChange& change, const Nodes::Resolved& source, const Place& from, const Place& to) {
    const fskit::FSItemPtr fromItem = nodes_.itemOf(from.directory);
    const fskit::FSItemPtr toItem = nodes_.itemOf(to.directory);
    try {
        changes_.handles.rename(source.item, fromItem, from.name, toItem, to.name);
    } catch (const KernelError& error) {
        if (!mayRefuseToReplace(error.number()))
            throw;
        renameOverHidden(change, source, from, to, error);
    }
}

// For a helper that refuses, what is to be replaced gets a hidden name first and is removed only when the new one has
// its place, so that nothing is lost whichever step fails.
void Renaming::renameOverHidden(const NameChange& change, const Nodes::Resolved& source, const Place& from,
                                const Place& to, const KernelError& refusal) {
    const fskit::FSItemPtr fromItem = nodes_.itemOf(from.directory);
    const fskit::FSItemPtr toItem = nodes_.itemOf(to.directory);
    const FoundItem replaced = toBeReplaced(to, refusal);
    // Where case does not count, the name that is taken may be the one that is to change.
    if (&to.directory == &from.directory && replaced.name == from.name)
        throw KernelError(refusal);
    const bool replacesDirectory = replaced.attributes.type() == FSItemType::directory;
    if (replacesDirectory != source.isDirectory)
        throw KernelError(replacesDirectory ? EISDIR : ENOTDIR);
    if (replacesDirectory)
        listings_.refuseIfNotEmpty(nodes_.child(to.directory, to.name), replaced.item);
    Node& target = nodes_.adopt(to.directory, replaced);
    try {
        hidden_.hide(change, target);
        changes_.handles.rename(source.item, fromItem, from.name, toItem, to.name);
    } catch (const KernelError& error) {
        if (target.hidden)
            hidden_.showAgain(change, target, to.name);
        nodes_.dropIfUnused(target);
        // Where the helper failed after it had renamed, the second time finds nothing: the first error says more.
        throw error.number() == ENOENT ? KernelError(refusal) : error;
    }
    hidden_.remove(target);
}

FoundItem Renaming::toBeReplaced(const Place& place, const KernelError& refusal) {
    try {
        return nodes_.find(place.directory, place.name);
    } catch (const KernelError&) {
        throw KernelError(refusal); // no file is in the way, so it was about something else
    }
}

} // namespace fusehost
