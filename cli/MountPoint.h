#pragma once

#include "cli/MountSource.h"

#include <string>

namespace cli {

/// Looks at everything that would make mounting on `mountPoint` fail or go wrong, before anything is started: it must
/// be an existing directory, empty unless `allowNonEmpty`, with nothing mounted on it, and neither inside the served
/// tree nor around anything that the helper needs. Returns its real path. Throws CommandError.
std::string checkedMountPoint(const std::string& mountPoint, const MountSource& source, bool allowNonEmpty);

/// Throws CommandError unless this user can mount FUSE file systems here, with `allow_other` if that is asked for.
void checkFuseAvailable(bool allowOther);

} // namespace cli
