#pragma once

#include "extension/HelperSettings.h"

#include <string>

namespace kemvi {

/// The file with what nobody else is to know, beside the configuration.
std::string secretsPath(const std::string& source);

/// What that file holds: NAME=VALUE in each line, up to its end; lines that are empty or begin with "#" are none.
/// Nothing if there is no such file. Throws SettingsError if anybody but its owner, who must be the caller or root, may
/// read or write it, or it lies in `served`, where the mount may show it.
HelperSettings secretsOf(const std::string& source, const std::string& served);

} // namespace kemvi
