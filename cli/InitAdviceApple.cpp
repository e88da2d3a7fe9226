#include "cli/InitAdvice.h"

#include "cli/Paths.h"
#include "cli/SystemMount.h"

#include <cstdlib>

namespace cli {

namespace {

// The one folder of a user's in which the extension's sandbox lets a helper read and write.
std::string container() {
    const char* const home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/Library/Containers/" KEMVI_EXTENSION_IDENTIFIER "/Data";
}

} // namespace

std::string defaultHome() {
    return container() + "/kemvi";
}

std::optional<std::string> remarkOnServing(const std::string& directory) {
    if (directory.empty() || isWithin(directory, container()))
        return std::nullopt;
    return "The extension's sandbox lets a helper work in " + container() +
           " alone, unless its entitlements name other folders; --repo-root DIR names another directory.";
}

std::string mountCommand(const std::string& source) {
    return systemMount(absolutePath(source), "MOUNTPOINT");
}

} // namespace cli
