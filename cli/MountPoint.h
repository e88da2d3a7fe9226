#pragma once

#include "cli/MountSource.h"
#include "foundation/Descriptor.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <string>

namespace cli {

/// Looks at everything that would make mounting on `mountPoint` fail or go wrong, before anything is started: it must
/// be an existing directory, empty unless the options say otherwise, with nothing mounted on it, and neither inside the
/// served tree nor around anything that the helper needs. Returns its real path. Throws CommandError.
std::string checkedMountPoint(const std::string& mountPoint, const MountSource& source,
                              const fusehost::MountOptions& options);

/// Keeps every other mount off a mount point while one is being made there: a lock on the directory itself, which needs
/// no right to write and goes with the process that holds it.
class MountPointLock {
public:
    /// Takes the lock and looks once more that nothing is mounted on this real path. Throws CommandError if something
    /// is, or if a mount is being made there.
    explicit MountPointLock(const std::string& mountPoint);

private:
    foundation::Descriptor directory_;
};

/// Throws CommandError unless this user can mount FUSE file systems with these options here.
void checkFuseAvailable(const fusehost::MountOptions& options);

/// True if what is mounted at this real path is an automount, which is to be mounted on.
bool isAutomount(const std::string& mountPoint);

} // namespace cli
