#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/tree/FileTree.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace fusehost {

using fskit::FSItemPtr;
using fskit::FSItemType;

std::optional<FoundItem> FileTree::existing(Node& directory, const std::string& name) {
    const std::optional<Absence> absence = std::exchange(absence_, std::nullopt);
    const bool isKnownAbsent = absence && trustsAbsence_ && absence->directory == directory.id &&
                               absence->name == name && std::chrono::steady_clock::now() - absence->seen < briefTrust;
    if (isKnownAbsent)
        return std::nullopt;
    try {
        return findChild(directory, name);
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            return std::nullopt;
        throw;
    }
}

FoundItem FileTree::createNew(Node& directory, const std::string& name, FSItemType type, mode_t mode) {
    absence_.reset();
    noteChange(directory);
    FoundItem made = volume_.create(itemOf(directory), name, type);
    applyCreationMode(made, mode);
    return made;
}

// New files are 0644 and new directories 0755 whatever was asked. Where the caller asked for less access for others,
// or for an executable, the helper is told; one that does not take modes is no reason to fail.
void FileTree::applyCreationMode(const FoundItem& made, mode_t mode) {
    const mode_t usual = made.attributes.type() == FSItemType::directory ? 0755 : 0644;
    const mode_t withheld = usual & ~mode & 0077;
    const mode_t executable = mode & ~usual & 0111;
    if (withheld == 0 && executable == 0)
        return;
    fskit::FSItemSetAttributesRequest request;
    // The owner keeps what it takes to fill the file: the handles for that are opened later, and anew after each close.
    request.setMode((mode | (usual & 0700)) & 0777);
    try {
        volume_.setAttributes(made.item, request);
    } catch (const KernelError& error) {
        error.tell();
    }
}

std::pair<TreeEntry, OpenFileID> FileTree::create(NodeID directoryID, const std::string& name, int flags, mode_t mode) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    checkName(name);
    if (isHidden(directory, name))
        throw KernelError(EEXIST);
    if (std::optional<FoundItem> found = existing(directory, name)) {
        if ((flags & O_EXCL) != 0)
            throw KernelError(EEXIST);
        return openExisting(adopt(directory, *found), found->attributes, flags);
    }
    FoundItem made = createNew(directory, name, FSItemType::file, mode);
    Node& node = adopt(directory, made);
    noteChange(node);
    node.safety = Safety::due; // what an fsync makes safe of an empty file is that it is there
    // The volume opens its handles when they are first used: a file that is made and not written costs no more.
    return {handOut(node, made.attributes), addOpenFile(node, flags)};
}

std::pair<TreeEntry, OpenFileID> FileTree::openExisting(Node& node, const fskit::FSItemAttributes& found, int flags) {
    const NodeID id = node.id;
    TreeEntry entry = handOut(node, found); // first: it keeps the node while it is opened
    std::optional<OpenFileID> file;
    try {
        file = open(id, flags);
        if ((flags & O_TRUNC) != 0)
            entry.attributes = getAttributes(id);
        return {entry, *file};
    } catch (const KernelError&) {
        if (file)
            release(*file);
        forget(id, 1);
        throw;
    }
}

TreeEntry FileTree::makeNode(NodeID directoryID, const std::string& name, mode_t mode) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    checkName(name);
    if (!S_ISREG(mode) && (mode & S_IFMT) != 0) {
        volume_.create(itemOf(directory), name, FSItemType::unknown); // the volume says why it cannot
        throw KernelError(EOPNOTSUPP);
    }
    if (existing(directory, name))
        throw KernelError(EEXIST);
    FoundItem made = createNew(directory, name, FSItemType::file, mode);
    return handOut(adopt(directory, made), made.attributes);
}

TreeEntry FileTree::makeDirectory(NodeID directoryID, const std::string& name, mode_t mode) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    checkName(name);
    FoundItem made = createNew(directory, name, FSItemType::directory, mode);
    return handOut(adopt(directory, made), made.attributes);
}

TreeEntry FileTree::makeSymbolicLink(NodeID directoryID, const std::string& name, const std::string& contents) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    checkName(name);
    absence_.reset();
    noteChange(directory);
    FoundItem made = volume_.createSymbolicLink(itemOf(directory), name, contents);
    return handOut(adopt(directory, made), made.attributes);
}

TreeEntry FileTree::makeLink(NodeID id, NodeID directoryID, const std::string& name) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    checkName(name);
    absence_.reset();
    noteChange(directory);
    volume_.createLink(itemOf(nodeAt(id)), itemOf(directory), name);
    FoundItem made = findChild(directory, name);
    return handOut(adopt(directory, made), made.attributes);
}

void FileTree::removeFile(NodeID directoryID, const std::string& name) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    const Resolved target = resolve(directory, name);
    if (target.isDirectory)
        throw KernelError(EISDIR);
    noteChange(directory);
    if (target.node != nullptr && target.node->isOpen()) {
        hide(*target.node);
        return;
    }
    volume_.remove(target.item, itemOf(directory), name);
    if (target.node != nullptr) {
        nodes_.detach(*target.node);
        nodes_.deleteIfUnused(*target.node);
    }
}

void FileTree::removeDirectory(NodeID directoryID, const std::string& name) {
    closeUnusedReaders();
    Node& directory = directoryAt(directoryID);
    const Resolved target = resolve(directory, name);
    if (!target.isDirectory)
        throw KernelError(ENOTDIR);
    // Asked first, because a helper may remove a directory with all that is in it.
    refuseIfNotEmpty(target.node, target.item);
    noteChange(directory);
    if (target.node != nullptr)
        moveHiddenOut(*target.node);
    volume_.remove(target.item, itemOf(directory), name);
    if (target.node != nullptr) {
        nodes_.detach(*target.node);
        nodes_.deleteIfUnused(*target.node);
    }
}

void FileTree::rename(NodeID directoryID, const std::string& name, NodeID newDirectoryID, const std::string& newName,
                      unsigned flags) {
    closeUnusedReaders();
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0)
        throw KernelError(EINVAL);
    Node& from = directoryAt(directoryID);
    Node& to = directoryAt(newDirectoryID);
    checkName(newName);
    const Resolved source = resolve(from, name);
    if (isHidden(to, newName) || ((flags & RENAME_NOREPLACE) != 0 && existing(to, newName)))
        throw KernelError(EEXIST);
    Node* target = nodes_.child(to, newName);
    if (target != nullptr && target == source.node)
        return;
    checkReplaceable(source.isDirectory, to, newName);
    target = nodes_.child(to, newName);
    absence_.reset();
    if (source.node != nullptr)
        closeForMove(*source.node);
    const bool targetLivesOn = target != nullptr && target->isOpen();
    if (targetLivesOn)
        hide(*target);
    else if (target != nullptr)
        moveHiddenOut(*target);
    try {
        renameOver(source.item, from, name, to, newName, source.isDirectory);
    } catch (const KernelError&) {
        if (targetLivesOn)
            showAgain(*target, newName);
        throw;
    }
    noteChange(from);
    noteChange(to);
    if (source.node != nullptr) {
        noteChange(*source.node);
        nodes_.move(*source.node, to, newName);
    } else if (Node* replaced = nodes_.child(to, newName)) {
        nodes_.detach(*replaced);
        nodes_.deleteIfUnused(*replaced);
    }
}

// A directory may replace an empty directory and nothing else, a file may replace files. Not every helper's rename sees
// to that, so for a directory the target is looked at. For a file, what is known of the target must do: the kernel has
// just looked it up, and renaming a file over another is what programs do to save it.
void FileTree::checkReplaceable(bool movesDirectory, Node& to, const std::string& newName) {
    if (!movesDirectory) {
        if (const Node* known = nodes_.child(to, newName); known != nullptr && known->isDirectory())
            throw KernelError(EISDIR);
        return;
    }
    const std::optional<FoundItem> replaced = existing(to, newName);
    if (!replaced)
        return;
    if (replaced->attributes.type() != FSItemType::directory)
        throw KernelError(ENOTDIR);
    refuseIfNotEmpty(nodes_.child(to, newName), replaced->item);
}

namespace {

/// Whether a helper that cannot replace may have said so by this. Not every one has a word for it.
bool mayRefuseToReplace(int error) {
    return error == EEXIST || error == EIO || error == EPERM || error == ENOTEMPTY || error == EINVAL;
}

} // namespace

// A helper that replaces atomically is let do so. For one that refuses, what is to be replaced gets a hidden name first
// and is removed only when the new one has its place, so that nothing is lost whichever step fails.
void FileTree::renameOver(const FSItemPtr& item, Node& from, const std::string& name, Node& to,
                          const std::string& newName, bool movesDirectory) {
    const FSItemPtr fromItem = itemOf(from);
    const FSItemPtr toItem = itemOf(to);
    KernelError refusal(EEXIST);
    try {
        volume_.rename(item, fromItem, name, toItem, newName);
        return;
    } catch (const KernelError& error) {
        if (!mayRefuseToReplace(error.number()))
            throw;
        refusal = error;
    }
    const FoundItem replaced = toBeReplaced(to, newName, refusal);
    // Where case does not count, the name that is taken may be the one that is to change.
    if (&to == &from && replaced.name == name)
        throw refusal;
    const bool replacesDirectory = replaced.attributes.type() == FSItemType::directory;
    if (replacesDirectory != movesDirectory)
        throw KernelError(replacesDirectory ? EISDIR : ENOTDIR);
    if (replacesDirectory)
        refuseIfNotEmpty(nodes_.child(to, newName), replaced.item);
    Node& target = adopt(to, replaced);
    try {
        hide(target);
        volume_.rename(item, fromItem, name, toItem, newName);
    } catch (const KernelError& error) {
        if (target.hidden)
            showAgain(target, newName);
        nodes_.deleteIfUnused(target);
        // Where the helper failed after it had renamed, the second time finds nothing: the first error says more.
        throw error.number() == ENOENT ? refusal : error;
    }
    removeHidden(target);
}

FoundItem FileTree::toBeReplaced(Node& directory, const std::string& name, const KernelError& refusal) {
    try {
        return findChild(directory, name);
    } catch (const KernelError&) {
        throw refusal; // no file is in the way, so it was about something else
    }
}

} // namespace fusehost
