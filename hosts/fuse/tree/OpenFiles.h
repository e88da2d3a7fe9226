#pragma once

#include "fskit/FSVolumeTypes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/OpenIDs.h"
#include "hosts/fuse/tree/OpenTable.h"
#include "hosts/fuse/tree/VolumeHandles.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace fusehost {

/// An open file as the kernel knows it.
struct OpenFile {
    NodeID node = 0;
    bool reads = false;
    bool writes = false;
    bool isOfUnknownSize = false; // what there is to read ends where a read is empty, and nowhere else
    bool hasFlushed = false;      // and not written since
    std::int64_t readEnd = -1;    // where the last read ended
};

/// The files that the kernel has open, and what their ends bring with them. The counts of openers at a node (`readers`,
/// `writers`, `unflushedWriters`) are kept here and nowhere else. Failures are KernelErrors; EBADF for an unknown file.
class OpenFiles {
public:
    /// With the writeback cache (`readsToWrite`) the kernel reads the rest of a page that is written in part.
    OpenFiles(Nodes& nodes, VolumeHandles& handles, HiddenFiles& hidden, bool readsToWrite);

    /// What must be open in the volume for a file opened with these flags of open(2).
    fskit::FSVolumeOpenModes modesFor(int flags) const;
    /// Takes the node's file for open. Nothing need be open in the volume yet.
    OpenFileID add(Node& node, int flags);

    OpenFile& at(OpenFileID id) { return files_.at(id); }

    /// The node of an open file, which lives at least as long as that is open.
    Node& nodeOf(OpenFileID id);
    /// The same of a file that is about to be written: it has something to flush from then on.
    Node& nodeToWrite(OpenFileID id);

    /// A descriptor of the file was closed; other descriptors may still share it. Tells the error that waits to be
    /// told.
    void flush(OpenFileID id);
    /// Nobody has the file open any more. May end the node.
    void release(OpenFileID id);

    /// How many files the kernel has open; one that was opened twice counts twice.
    std::size_t size() const { return files_.size(); }

    /// The files that are open for writing and have a name: of them alone the kernel may hold changed pages, since it
    /// writes those when a file is closed and when a map of it is let go. In the order of their numbers.
    std::vector<NodeID> writtenNodes();
    /// For the end of a mount: tells the log of errors that no program was told, removes the files that live only
    /// because they are open, and forgets all files. Never throws.
    void end() noexcept;

private:
    void forEachNode(const std::function<void(const OpenFile&, Node&)>& use);

    Nodes& nodes_;
    VolumeHandles& handles_;
    HiddenFiles& hidden_;
    const bool readsToWrite_;
    OpenTable<OpenFileID, OpenFile> files_;
};

} // namespace fusehost
