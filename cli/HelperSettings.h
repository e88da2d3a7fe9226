#pragma once

#include "extension/HelperSettings.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli {

using kemvi::HelperSettings;

/// Reads NAME=VALUE, an option's value. `where` is what an error names. Throws CommandError, with the code for wrong
/// usage.
std::pair<std::string, std::string> helperSetting(std::string_view text, const std::string& where);

/// The names alone, each once and in order: values may be secrets.
std::vector<std::string> namesOf(const HelperSettings& settings);

/// Puts them into this process's own environment, which the helper inherits. To be called before there are other
/// threads.
void tellToHelpers(const HelperSettings& settings);

} // namespace cli
