#include "hosts/fuse/tree/OpenFiles.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>

namespace fusehost {

using fskit::FSVolumeOpenModes;

OpenFiles::OpenFiles(Nodes& nodes, VolumeHandles& handles, HiddenFiles& hidden, bool readsToWrite)
    : nodes_(nodes), handles_(handles), hidden_(hidden), readsToWrite_(readsToWrite) {}

FSVolumeOpenModes OpenFiles::modesFor(int flags) const {
    switch (flags & O_ACCMODE) {
    case O_RDONLY: return FSVolumeOpenModes::read;
    case O_WRONLY: return readsToWrite_ ? FSVolumeOpenModes::readWrite : FSVolumeOpenModes::write;
    default: return FSVolumeOpenModes::readWrite;
    }
}

OpenFileID OpenFiles::add(Node& node, int flags) {
    const FSVolumeOpenModes modes = modesFor(flags);
    const OpenFile file{node.id, contains(modes, FSVolumeOpenModes::read), contains(modes, FSVolumeOpenModes::write)};
    const OpenFileID id = files_.add(file);
    node.readers += file.reads;
    node.writers += file.writes;
    node.unflushedWriters += file.writes;
    return id;
}

Node& OpenFiles::nodeOf(OpenFileID id) {
    return nodes_.at(files_.at(id).node);
}

Node& OpenFiles::nodeToWrite(OpenFileID id) {
    OpenFile& file = files_.at(id);
    Node& node = nodes_.at(file.node);
    if (file.hasFlushed) {
        file.hasFlushed = false;
        ++node.unflushedWriters;
    }
    return node;
}

void OpenFiles::flush(OpenFileID id) {
    OpenFile& file = files_.at(id);
    Node& node = nodes_.at(file.node);
    if (!file.writes)
        return;
    if (!file.hasFlushed) {
        file.hasFlushed = true;
        --node.unflushedWriters;
    }
    const int deferred = node.deferredError.take();
    handles_.closeUnused(node);
    if (deferred != 0)
        throw KernelError(deferred);
}

void OpenFiles::release(OpenFileID id) {
    const OpenFile file = files_.at(id);
    files_.erase(id);
    Node& node = nodes_.at(file.node);
    node.readers -= file.reads;
    node.writers -= file.writes;
    node.unflushedWriters -= file.writes && !file.hasFlushed;
    if (node.isOpen() || file.writes || node.hidden || !node.item)
        handles_.closeQuietly(node);
    else
        handles_.closeWhenIdle(node);
    if (node.hidden && !node.isOpen())
        hidden_.remove(node);
    else
        nodes_.dropIfUnused(node);
}

void OpenFiles::forEachNode(const std::function<void(const OpenFile&, Node&)>& use) {
    files_.forEach([&](const OpenFile& file) { use(file, nodes_.at(file.node)); });
}

std::vector<NodeID> OpenFiles::writtenNodes() {
    std::vector<NodeID> written;
    forEachNode([&](const OpenFile& file, const Node& node) {
        if (file.writes && !node.hidden)
            written.push_back(node.id);
    });
    std::sort(written.begin(), written.end());
    written.erase(std::unique(written.begin(), written.end()), written.end());
    return written;
}

namespace {

// Whoever has the file open finds the mount gone, and nobody else will ask. Once per file, however often it is open.
void tellUntoldError(Node& node) {
    if (node.hidden)
        return;
    if (const int error = node.deferredError.take())
        hostLog().error({"not all that was written to ", foundation::logPrivate(node.name),
                         " has reached the helper: ", foundation::logPublic(std::strerror(error))});
}

} // namespace

void OpenFiles::end() noexcept {
    quietly("telling what was lost", [&] {
        forEachNode([&](const OpenFile&, Node& node) {
            handles_.dropReadAhead(node);
            tellUntoldError(node);
        });
    });
    quietly("removing files that were kept since they were open", [&] {
        forEachNode([&](const OpenFile&, Node& node) {
            if (node.hidden)
                quietly("removing a file that was kept since it was open", [&] { hidden_.remove(node); });
        });
    });
    files_.clear();
}

} // namespace fusehost
