#include "cli/MountSource.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"
#include "control/ControlServer.h"
#include "foundation/DecodingError.h"
#include "foundation/FileContents.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace filesystem = std::filesystem;

std::string configurationPath(const std::string& source) {
    return (filesystem::path(source) / "mount-config.json").string();
}

std::string MountSource::configurationPath() const {
    return cli::configurationPath(path);
}

namespace {

std::string readConfiguration(const std::string& path, const std::string& source) {
    std::error_code error;
    if (!filesystem::exists(path, error)) {
        throw CommandError(ExitCode::configuration, path,
                           error && error.value() != ENOENT ? "cannot be read: " + error.message()
                                                            : "does not exist; write one with: kemvi init " + source);
    }
    if (!filesystem::is_regular_file(path, error))
        throw CommandError(ExitCode::configuration, path, "is not a file; expected the JSON mount configuration");
    try {
        return foundation::contentsOfFile(path);
    } catch (const foundation::Error& failure) {
        throw CommandError(ExitCode::configuration, path, "cannot be read: " + failure.description());
    }
}

} // namespace

MountSource readMountSource(const std::string& source) {
    const auto path = realPath(source);
    if (!path)
        throw CommandError(ExitCode::configuration, source, "cannot be used as source directory: " + errnoText(errno));
    if (!filesystem::is_directory(*path))
        throw CommandError(ExitCode::configuration, source, "is not a directory; expected the source directory");
    const std::string configuration = configurationPath(*path);
    try {
        return {*path, kemvi::KemviMountConfig::decode(readConfiguration(configuration, source))};
    } catch (const foundation::DecodingError& error) {
        throw CommandError(ExitCode::configuration, configuration,
                           error.description() +
                               "; expected a JSON object with the strings driveId, kemviHome, repoRoot, helperPath");
    }
}

void checkHelperAvailable(const MountSource& source) {
    const std::string& helper = source.config.helperPath;
    const std::string key = source.configurationPath() + ": \"helperPath\"";
    if (!filesystem::path(helper).is_absolute()) {
        throw CommandError(ExitCode::configuration, key,
                           helper.empty()
                               ? "is empty; expected the absolute path of the helper script"
                               : "is the relative path " + helper +
                                     "; expected an absolute path, since a mount runs in no directory of yours");
    }
    std::error_code error;
    // As node itself does, a script may be named without its extension.
    if (!filesystem::exists(helper, error) && !filesystem::exists(helper + ".js", error))
        throw CommandError(ExitCode::helperUnavailable, helper, "the helper script does not exist; correct " + key);
    if (filesystem::exists(helper, error) && ::access(helper.c_str(), R_OK) != 0) {
        throw CommandError(ExitCode::helperUnavailable, helper,
                           "the helper script cannot be read: " + errnoText(errno));
    }
    if (!findInPath("node")) {
        throw CommandError(ExitCode::helperUnavailable, "node",
                           "is not in PATH; install Node.js (Debian: nodejs) or add its directory to PATH");
    }
}

void tellSourceToHelpers(const MountSource& source) {
    ::setenv("KEMVI_SOURCE", source.path.c_str(), 1);
    if (const auto become = shippedProgram("kemvi-become.node"))
        ::setenv("KEMVI_BECOME", become->c_str(), 1);
    ::setenv(control::environmentName, "", 1);
}

} // namespace cli
