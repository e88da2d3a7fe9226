#include "cli/control/UnmountOperation.h"

#include "foundation/Error.h"
#include "hosts/fuse/mounting/MountTable.h"
#include "hosts/fuse/mounting/Unmounting.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <utility>

namespace cli {

namespace {

void unmount(control::Reply& reply, const std::string& mountPoint, unsigned device) {
    try {
        const auto path = fusehost::reachablePath(fusehost::readMountTable(), device, mountPoint);
        if (!path)
            return reply.refuse("notMounted", "the mount is not to be reached by a path of its own");
        if (const auto failure = fusehost::unmount(*path))
            return reply.refuse(failure->busy ? "busy" : "failed", failure->reason);
        reply.succeed();
    } catch (const foundation::Error& error) {
        reply.refuse("failed", error.description());
    }
}

} // namespace

void addUnmountOperation(control::ControlServer& server, const std::string& mountPoint,
                         std::function<std::optional<unsigned>()> device) {
    server.handle("unmount", {},
                  [mountPoint, device = std::move(device)](const control::Request&, control::Reply& reply) {
                      const auto number = device();
                      if (!number)
                          return reply.refuse("notMounted", "the mount is being made, or is gone already");
                      // The kernel may ask much of the mount before it lets go. Detached: the process ends when the
                      // mount is gone.
                      auto later = std::make_shared<control::Reply>(std::move(reply));
                      fusehost::startBackgroundThread([later, mountPoint, number = *number] {
                          unmount(*later, mountPoint, number);
                      }).detach();
                  });
}

} // namespace cli
