#include "cli/HelperSettings.h"

#include "cli/CommandError.h"

#include <cstdlib>
#include <set>

namespace cli {

std::pair<std::string, std::string> helperSetting(std::string_view text, const std::string& where) {
    try {
        return kemvi::helperSetting(text, where);
    } catch (const kemvi::SettingsError& error) {
        throw CommandError(ExitCode::usage, error.subject(), error.problem());
    }
}

std::vector<std::string> namesOf(const HelperSettings& settings) {
    std::set<std::string> names;
    for (const auto& [name, value] : settings)
        names.insert(name);
    return {names.begin(), names.end()};
}

void tellToHelpers(const HelperSettings& settings) {
    for (const auto& [name, value] : settings)
        ::setenv(name.c_str(), value.c_str(), 1);
}

} // namespace cli
