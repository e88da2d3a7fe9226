#pragma once

#include "cli/HostRecord.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <optional>
#include <string>

namespace cli {

/// What the user means by a path: a mount, or, where nothing is mounted any more, the path at which something was.
struct MountTarget {
    std::string path;
    std::optional<fusehost::MountEntry> mount;
};

/// Looks a mount point up as the user names it. What is mounted there is never asked anything. Throws CommandError if
/// what is mounted there is not ours.
MountTarget findMountTarget(const std::string& name);

/// True if that process serves the mount, or, where nothing is mounted, once mounted at the path.
bool isBehind(const ServingProcess& serving, const MountTarget& target);

} // namespace cli
