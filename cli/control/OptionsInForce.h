#pragma once

#include "hosts/fuse/mounting/MountOptions.h"

#include <string>
#include <vector>

namespace cli {

/// The options of a mount as `-o` takes them, one each: those that always have a value, and the others where they are
/// set.
std::vector<std::string> optionsInForce(const fusehost::MountOptions& options);

} // namespace cli
