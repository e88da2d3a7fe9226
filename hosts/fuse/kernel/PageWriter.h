#pragma once

#include "hosts/fuse/support/EventDescriptor.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <thread>
#include <vector>

struct fuse_session;

namespace fusehost {

/// Makes the kernel write what programs have changed of files and it still holds: pages of shared maps, and with its
/// writeback cache every page. Told to drop a file's pages, the kernel first writes those that were changed, and waits
/// for that. So a thread of its own tells it, while the session goes on being served.
class PageWriter {
public:
    /// Begins with the files of these nodes, one after the other. Throws std::system_error if the process can have no
    /// more threads or descriptors.
    PageWriter(fuse_session* session, std::vector<NodeID> nodes);
    /// Waits until all is written or refused: somebody else must serve the session until `descriptor` is readable.
    ~PageWriter();
    PageWriter(const PageWriter&) = delete;
    PageWriter& operator=(const PageWriter&) = delete;

    /// Becomes readable when all is written.
    int descriptor() const { return written_.number(); }

private:
    EventDescriptor written_;
    std::thread thread_;
};

} // namespace fusehost
