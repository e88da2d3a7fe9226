#pragma once

#include "cli/HelperSettings.h"

#include <string>
#include <string_view>

namespace cli {

/// Takes the `helper_env=` out of a list of mount options; the rest is returned, as it is written. Throws CommandError.
std::string takeSettings(std::string_view options, HelperSettings& settings);

} // namespace cli
