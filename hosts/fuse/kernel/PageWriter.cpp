#include "hosts/fuse/kernel/PageWriter.h"

#include "hosts/fuse/kernel/LibFuse.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <utility>

namespace fusehost {

PageWriter::PageWriter(fuse_session* session, std::vector<NodeID> nodes)
    : thread_(startBackgroundThread([this, session, nodes = std::move(nodes)] {
          for (const NodeID node : nodes)
              fuse_lowlevel_notify_inval_inode(session, node, 0, 0); // one that is gone has nothing to write
          written_.signal();
      })) {}

PageWriter::~PageWriter() {
    thread_.join();
}

} // namespace fusehost
