#include "hosts/fuse/tree/Creation.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>

namespace fusehost {

using fskit::FSItemType;

Creation::Creation(Changes& changes, Nodes& nodes, HiddenFiles& hidden, NewItems& newItems, Attributes& attributes,
                   Opening& opening)
    : changes_(changes), nodes_(nodes), hidden_(hidden), newItems_(newItems), attributes_(attributes),
      opening_(opening) {}

FoundItem Creation::make(const NameChange& change, Node& directory, const std::string& name, FSItemType type,
                         mode_t mode) {
    try {
        return newItems_.make(change, directory, name, type, mode);
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            attributes_.ask(directory); // which the kernel may take for there long after it has gone
        throw;
    }
}

TreeEntry Creation::handOut(Node& directory, const FoundItem& made) {
    return attributes_.handOut(nodes_.adopt(directory, made), made.attributes);
}

std::pair<TreeEntry, OpenFileID> Creation::create(Node& directory, const std::string& name, int flags, mode_t mode) {
    NameChange change(changes_, directory);
    nodes_.checkName(name);
    if (hidden_.isHidden(directory, name))
        throw KernelError(EEXIST);
    if (const std::optional<FoundItem> found = change.existing(nodes_, directory, name)) {
        if ((flags & O_EXCL) != 0)
            throw KernelError(EEXIST);
        return openExisting(nodes_.adopt(directory, *found), found->attributes, flags);
    }
    const FoundItem made = make(change, directory, name, FSItemType::file, mode);
    Node& node = nodes_.adopt(directory, made);
    node.safety = Safety::due; // what an fsync makes safe of an empty file is that it is there
    return {attributes_.handOut(node, made.attributes), opening_.openNew(node, flags)};
}

std::pair<TreeEntry, OpenFileID> Creation::openExisting(Node& node, const fskit::FSItemAttributes& found, int flags) {
    const NodeID id = node.id;
    TreeEntry entry = attributes_.handOut(node, found); // first: it keeps the node while it is opened
    std::optional<OpenFileID> file;
    try {
        file = opening_.open(node, flags);
        if ((flags & O_TRUNC) != 0)
            entry.attributes = attributes_.get(node);
        return {entry, *file};
    } catch (const KernelError&) {
        if (file)
            opening_.undo(*file);
        nodes_.forget(id, 1);
        throw;
    }
}

TreeEntry Creation::makeNode(Node& directory, const std::string& name, mode_t mode) {
    NameChange change(changes_, directory);
    nodes_.checkName(name);
    if (!S_ISREG(mode) && (mode & S_IFMT) != 0)
        newItems_.refuseToMake(change, directory, name);
    if (change.existing(nodes_, directory, name))
        throw KernelError(EEXIST);
    return handOut(directory, make(change, directory, name, FSItemType::file, mode));
}

TreeEntry Creation::makeDirectory(Node& directory, const std::string& name, mode_t mode) {
    const NameChange change(changes_, directory);
    nodes_.checkName(name);
    return handOut(directory, make(change, directory, name, FSItemType::directory, mode));
}

TreeEntry Creation::makeSymbolicLink(Node& directory, const std::string& name, const std::string& contents) {
    const NameChange change(changes_, directory);
    nodes_.checkName(name);
    return handOut(directory, newItems_.makeSymbolicLink(change, directory, name, contents));
}

TreeEntry Creation::makeLink(Node& node, Node& directory, const std::string& name) {
    const NameChange change(changes_, directory);
    nodes_.checkName(name);
    return handOut(directory, newItems_.makeLink(change, node, directory, name));
}

} // namespace fusehost
