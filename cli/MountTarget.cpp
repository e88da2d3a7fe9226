#include "cli/MountTarget.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"

#include <filesystem>
#include <system_error>

namespace cli {

/// A link to a mount point is followed only once it is clear that no mount bears its name, because following the name
/// of a mount asks the mounted file system.
MountTarget findMountTarget(const std::string& name) {
    const auto table = fusehost::readMountTable();
    auto path = realParentPath(name);
    auto found = path ? fusehost::findMount(table, *path) : std::nullopt;
    std::error_code error;
    if (path && !found && std::filesystem::is_symlink(*path, error)) {
        path = realPath(*path);
        found = path ? fusehost::findMount(table, *path) : std::nullopt;
    }
    if (found && !found->isOurs()) {
        throw CommandError(ExitCode::notMounted, name,
                           "what is mounted here is of type " + found->type + ", not of ours; use umount");
    }
    return {path.value_or(name), found};
}

bool isBehind(const ServingProcess& serving, const MountTarget& target) {
    if (!target.mount)
        return serving.mountPoint == target.path;
    return serving.deviceMinor == target.mount->deviceMinor && serving.owner == target.mount->owner;
}

} // namespace cli
