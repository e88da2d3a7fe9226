#include "extension/HelperSettings.h"

#include "foundation/PosixErrno.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace kemvi {
namespace {

bool isName(std::string_view name) {
    const auto isPart = [](unsigned char each) { return each < 0x80 && (std::isalnum(each) != 0 || each == '_'); };
    return !name.empty() && std::isdigit(static_cast<unsigned char>(name.front())) == 0 &&
           std::all_of(name.begin(), name.end(), isPart);
}

/// By these names the shipped helpers and the kits are told; the mount itself uses none of them.
bool isOfHelpers(std::string_view name) {
    constexpr std::array names = {"KEMVI_STORE", "KEMVI_MEMORY_LIMIT", "KEMVI_RECORDING", "KEMVI_HELPER_DEBUG"};
    return name.starts_with("KEMVI_STORE_") || std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

foundation::NSError SettingsError::nsError() const {
    return foundation::NSError::posix(foundation::posixErrno::EINVAL_, description());
}

std::pair<std::string, std::string> helperSetting(std::string_view text, const std::string& where) {
    const std::size_t equals = text.find('=');
    const std::string name(text.substr(0, equals));
    if (equals == std::string_view::npos || !isName(name))
        throw SettingsError(where,
                            "expected NAME=VALUE, with a name of letters, digits and \"_\" that begins with no digit");
    if (name.starts_with("KEMVI_") && !isOfHelpers(name))
        throw SettingsError(where, "names that begin with KEMVI_ are what the mount itself tells, but for "
                                   "KEMVI_STORE..., KEMVI_MEMORY_LIMIT, KEMVI_RECORDING and KEMVI_HELPER_DEBUG; "
                                   "choose another");
    if (text.find('\0') != std::string_view::npos)
        throw SettingsError(where, "holds a NUL, which no variable can");
    return {name, std::string(text.substr(equals + 1))};
}

} // namespace kemvi
