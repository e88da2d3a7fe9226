#include "hosts/fuse/tree/VolumeHandles.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"

namespace fusehost {

using fskit::FSItemPtr;
using fskit::FSVolumeOpenModes;

VolumeHandles::VolumeHandles(VolumeCalls& volume, NodeTable& table, Seconds attrTimeout)
    : volume_(volume), table_(table), readAhead_(volume, attrTimeout) {}

void VolumeHandles::open(Node& node, FSVolumeOpenModes modes) {
    haveRivalsGiveWay(*node.item);
    if (contains(modes, FSVolumeOpenModes::write))
        open_.enterWriting(node);
    else
        open_.enter(node);
    volume_.open(node.item, modes);
}

std::size_t VolumeHandles::read(Node& node, std::int64_t offset, std::span<std::byte> into) {
    haveRivalsGiveWay(*node.item);
    open_.enter(node);
    return volume_.read(node.item, offset, into);
}

std::size_t VolumeHandles::write(Node& node, std::int64_t offset, std::span<const std::byte> contents) {
    haveRivalsGiveWay(*node.item);
    open_.enterWriting(node);
    return volume_.write(node.item, offset, contents);
}

fskit::FSItemAttributes VolumeHandles::makeEmpty(Node& node) {
    haveRivalsGiveWay(*node.item);
    open_.leaveWriting(*node.item);
    fskit::FSItemSetAttributesRequest request;
    request.setSize(0);
    return volume_.setAttributes(node.item, request);
}

void VolumeHandles::remove(const FSItemPtr& item, const FSItemPtr& directory, const std::string& name) {
    haveRivalsGiveWay(*item);
    volume_.remove(item, directory, name);
}

void VolumeHandles::rename(const FSItemPtr& item, const FSItemPtr& from, const std::string& oldName,
                           const FSItemPtr& to, const std::string& newName) {
    haveRivalsGiveWay(*item);
    volume_.rename(item, from, oldName, to, newName);
}

void VolumeHandles::synchronize() {
    volume_.synchronize();
}

void VolumeHandles::readAhead(const Node& node, std::int64_t offset, std::size_t size) {
    readAhead_.start(node, offset, size);
}

std::size_t VolumeHandles::takeReadAhead(const Node& node, std::int64_t offset, std::span<std::byte> into) {
    return readAhead_.take(node.id, offset, into);
}

void VolumeHandles::dropReadAhead(const Node& node) {
    readAhead_.drop(node);
}

// One that has given way has nothing open any more, and the volume would close its rival's instead.
void VolumeHandles::close(const FSItemPtr& item, FSVolumeOpenModes keeping) {
    if (open_.rivalOf(*item))
        return;
    if (keeping == FSVolumeOpenModes::none)
        open_.leave(*item);
    volume_.close(item, keeping);
}

void VolumeHandles::closeUnused(Node& node) {
    readAhead_.drop(node);
    if (!node.item)
        return; // nothing can be open: the volume's handles went when the item did
    const FSVolumeOpenModes reading = node.readers > 0 ? FSVolumeOpenModes::read : FSVolumeOpenModes::none;
    const FSVolumeOpenModes writing = node.unflushedWriters > 0 ? FSVolumeOpenModes::write : FSVolumeOpenModes::none;
    if (node.unflushedWriters == 0)
        open_.leaveWriting(*node.item);
    close(node.item, reading | writing);
}

void VolumeHandles::closeQuietly(Node& node) noexcept {
    quietly("closing a file", [&] {
        const bool closesWriter = mayBeWritten(node) && node.unflushedWriters == 0;
        try {
            closeUnused(node);
        } catch (const KernelError& error) {
            if (closesWriter)
                node.deferredError.keep(error.number());
            throw;
        }
    });
}

void VolumeHandles::closeEverything(Node& node) {
    readAhead_.drop(node);
    if (!node.item)
        return;
    try {
        close(node.item, FSVolumeOpenModes::none);
    } catch (const KernelError& error) {
        error.tell(); // the program that is told later gets the number alone
        if (node.writers > 0)
            node.deferredError.keep(error.number());
    }
}

void VolumeHandles::closeForMove(Node& node) {
    if (node.isOpen())
        closeEverything(node);
    else
        readAhead_.drop(node);
    for (Node* child = node.firstChild; child != nullptr; child = child->nextSibling)
        closeForMove(*child);
}

void VolumeHandles::forgetAll() {
    readAhead_.dropAll();
    open_.clear();
}

void VolumeHandles::closeOtherWriters(const Node& node) {
    for (Node* other : otherWriters(node)) {
        if (other->isWriteProtected)
            continue;
        open_.leaveWriting(*other->item);
        try {
            close(other->item, FSVolumeOpenModes::read);
        } catch (const KernelError& error) {
            error.tell(); // the program that is told later gets the number alone
            other->deferredError.keep(error.number());
        }
    }
}

// A program that reads many small files opens the next one right after it closed the last. It need not wait for the
// handle of the last one to be given back.
void VolumeHandles::closeWhenIdle(Node& node) {
    constexpr std::size_t mostUnused = 8;
    readAhead_.drop(node);
    open_.addUnused(node.item);
    if (open_.unused() > mostUnused)
        doNext();
}

void VolumeHandles::doNext() noexcept {
    if (const FSItemPtr item = open_.takeUnused())
        closeUnusedReader(item);
}

void VolumeHandles::closeUnusedReader(const FSItemPtr& item) noexcept {
    quietly("closing a file that was read", [&] { close(item, FSVolumeOpenModes::none); });
}

void VolumeHandles::closeAllUnused() noexcept {
    while (isPending())
        doNext();
}

// Two names whose paths have the same hash can be open side by side, and anyone can find such names. The volume would
// write to the one through the handle of the other. So they take turns: slow, and right.
void VolumeHandles::haveRivalsGiveWay(const fskit::FSItem& item) {
    while (const FSItemPtr rival = open_.rivalOf(item))
        giveWay(rival);
}

void VolumeHandles::giveWay(const FSItemPtr& item) {
    open_.removeUnused(*item);
    Node* node = table_.find(open_.nodeOf(*item));
    if (node != nullptr && node->isOpen() && node->item && node->item->isSame(*item))
        closeEverything(*node);
    closeUnusedReader(item); // where it is not closed yet: nobody is left to be told of a failure
    open_.leave(*item);
}

bool VolumeHandles::mayBeWritten(const Node& node) const {
    return node.item && open_.mayBeWritten(*node.item);
}

std::vector<Node*> VolumeHandles::otherWriters(const Node& node) {
    std::vector<Node*> others;
    for (const NodeID id : open_.writersBeside(node.item.get())) {
        Node* other = table_.find(id);
        if (other != nullptr && other->writers > 0 && other->item)
            others.push_back(other);
    }
    return others;
}

} // namespace fusehost
