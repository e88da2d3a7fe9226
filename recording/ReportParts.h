#pragma once

#include <string_view>

/// The files of the folder report/, which the build puts into the program.
namespace recording::reportParts {

extern const std::string_view plotScript;
extern const std::string_view plotStyle;
extern const std::string_view plotLicence;
extern const std::string_view script;
extern const std::string_view style;

} // namespace recording::reportParts
