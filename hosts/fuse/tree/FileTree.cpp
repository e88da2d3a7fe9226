#include "hosts/fuse/tree/FileTree.h"

#include "hosts/fuse/tree/NodePath.h"
#include "hosts/fuse/tree/Rooms.h"

namespace fusehost {

FileTree::FileTree(VolumeCalls& volume, const MountOptions& options, Clock clock)
    : rooms_(std::make_unique<Rooms>(volume, options, clock)) {}

FileTree::~FileTree() = default;

bool FileTree::isUnderWay() {
    return rooms_->handles.isUnderWay();
}

bool FileTree::isPending() const {
    return rooms_->handles.isPending();
}

void FileTree::doNext() noexcept {
    rooms_->handles.doNext();
}

void FileTree::begin() {
    rooms_->table.root().item = rooms_->volume.activate();
}

void FileTree::end() noexcept {
    rooms_->handles.closeAllUnused();
    rooms_->files.end();
    rooms_->listings.end();
}

void FileTree::leaveVolume() noexcept {
    rooms_->volumeChange.leave();
}

void FileTree::loseVolume() {
    rooms_->volumeChange.lose();
}

void FileTree::takeVolume() {
    rooms_->volumeChange.take();
}

void FileTree::checkAccess(uid_t caller, NodeID node, int wanted) {
    rooms_->permissions.check(caller, rooms_->nodes.at(node), wanted);
}

void FileTree::checkDirectoryAccess(uid_t caller, NodeID directory, int wanted) {
    rooms_->permissions.check(caller, rooms_->nodes.directoryAt(directory), wanted);
}

void FileTree::checkOwner(uid_t caller, NodeID node) {
    rooms_->permissions.checkOwner(caller, rooms_->nodes.at(node));
}

TreeEntry FileTree::lookup(NodeID directory, const std::string& name) {
    return rooms_->lookup.find(rooms_->nodes.directoryAt(directory), name);
}

bool FileTree::noteToldAbsence(NodeID directory, const std::string& name) {
    return rooms_->toldAbsences.add(rooms_->nodes.directoryAt(directory), name);
}

void FileTree::forget(NodeID node, std::uint64_t lookups) {
    rooms_->nodes.forget(node, lookups);
}

struct stat FileTree::getAttributes(NodeID node) {
    return rooms_->attributes.get(rooms_->nodes.at(node));
}

struct stat FileTree::setAttributes(NodeID node, const AttributeChange& change) {
    return rooms_->attributeChanges.change(rooms_->nodes.at(node), change);
}

std::string FileTree::readSymbolicLink(NodeID node) {
    return rooms_->volume.readSymbolicLink(rooms_->nodes.itemOf(rooms_->nodes.at(node)));
}

OpenFileID FileTree::open(NodeID node, int flags) {
    return rooms_->opening.open(rooms_->nodes.at(node), flags);
}

bool FileTree::isOfUnknownSize(OpenFileID file) const {
    return rooms_->files.at(file).isOfUnknownSize;
}

std::size_t FileTree::read(OpenFileID file, std::int64_t offset, std::span<std::byte> into) {
    return rooms_->access.read(file, offset, into);
}

std::size_t FileTree::write(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents) {
    return rooms_->access.write(file, offset, contents);
}

void FileTree::writePages(OpenFileID file, std::int64_t offset, std::span<const std::byte> contents) {
    rooms_->access.writePages(file, offset, contents);
}

void FileTree::synchronize(OpenFileID file) {
    rooms_->durability.synchronize(rooms_->files.nodeOf(file));
}

void FileTree::flush(OpenFileID file) {
    rooms_->files.flush(file);
}

void FileTree::release(OpenFileID file) {
    rooms_->files.release(file);
}

std::vector<NodeID> FileTree::writtenNodes() {
    return rooms_->files.writtenNodes();
}

OpenDirectoryID FileTree::openDirectory(NodeID node) {
    return rooms_->listings.open(rooms_->nodes.directoryAt(node));
}

void FileTree::releaseDirectory(OpenDirectoryID directory) {
    rooms_->listings.release(directory);
}

void FileTree::startListing(OpenDirectoryID directory) {
    rooms_->listings.start(directory);
}

std::size_t FileTree::listedCount(OpenDirectoryID directory) {
    return rooms_->listings.count(directory);
}

const ListedEntry* FileTree::listedEntry(OpenDirectoryID directory, std::size_t index) {
    return rooms_->listings.entry(directory, index);
}

std::optional<TreeEntry> FileTree::listedNode(OpenDirectoryID directory, const ListedEntry& entry) {
    return rooms_->listings.node(directory, entry);
}

Seconds FileTree::remainingTrust(OpenDirectoryID directory, Seconds timeout) {
    return rooms_->listings.remainingTrust(directory, timeout);
}

std::pair<TreeEntry, OpenFileID> FileTree::create(NodeID directory, const std::string& name, int flags, mode_t mode) {
    return rooms_->creation.create(rooms_->nodes.directoryAt(directory), name, flags, mode);
}

TreeEntry FileTree::makeNode(NodeID directory, const std::string& name, mode_t mode) {
    return rooms_->creation.makeNode(rooms_->nodes.directoryAt(directory), name, mode);
}

TreeEntry FileTree::makeDirectory(NodeID directory, const std::string& name, mode_t mode) {
    return rooms_->creation.makeDirectory(rooms_->nodes.directoryAt(directory), name, mode);
}

TreeEntry FileTree::makeSymbolicLink(NodeID directory, const std::string& name, const std::string& contents) {
    return rooms_->creation.makeSymbolicLink(rooms_->nodes.directoryAt(directory), name, contents);
}

TreeEntry FileTree::makeLink(NodeID node, NodeID directory, const std::string& name) {
    return rooms_->creation.makeLink(rooms_->nodes.at(node), rooms_->nodes.directoryAt(directory), name);
}

void FileTree::removeFile(NodeID directory, const std::string& name) {
    rooms_->removal.removeFile(rooms_->nodes.directoryAt(directory), name);
}

void FileTree::removeDirectory(NodeID directory, const std::string& name) {
    rooms_->removal.removeDirectory(rooms_->nodes.directoryAt(directory), name);
}

void FileTree::rename(NodeID directory, const std::string& name, NodeID newDirectory, const std::string& newName,
                      unsigned flags) {
    rooms_->renaming.rename(rooms_->nodes.directoryAt(directory), name, rooms_->nodes.directoryAt(newDirectory),
                            newName, flags);
}

void FileTree::forgetShown() {
    rooms_->freshness.forgetShown();
}

ToForget FileTree::noteOutsideChanges(const std::vector<std::string>& paths) {
    ToForget toForget;
    for (const std::string& path : paths)
        rooms_->outsideChanges.note(path, toForget);
    return toForget;
}

fskit::FSStatFSResult FileTree::statistics() const {
    return rooms_->volume.statistics();
}

std::size_t FileTree::maximumNameLength() const {
    return rooms_->volume.maximumNameLength();
}

std::string_view FileTree::describe(NodeID node, std::string_view name, std::span<char> room) {
    const Node* found = rooms_->table.find(node);
    return found != nullptr ? pathOf(*found, name, room) : std::string_view();
}

TreeGauges FileTree::gauges() const {
    return {rooms_->table.size(), rooms_->files.size(), rooms_->handles.openItems(), rooms_->hidden.count()};
}

const NodeTable& FileTree::nodes() const {
    return rooms_->table;
}

std::size_t FileTree::openItems() const {
    return rooms_->handles.openItems();
}

} // namespace fusehost
