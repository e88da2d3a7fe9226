#include "cli/MountSource.h"

#include "cli/CommandError.h"
#include "cli/HelperCommand.h"
#include "cli/HelperScript.h"
#include "cli/Paths.h"
#include "extension/FurtherKeys.h"
#include "extension/MountSecrets.h"
#include "foundation/DecodingError.h"
#include "foundation/FileContents.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

std::string configurationPath(const std::string& source) {
    return (filesystem::path(source) / "mount-config.json").string();
}

std::string MountSource::configurationPath() const {
    return cli::configurationPath(path);
}

std::string MountSource::helperName() const {
    return command.empty() ? config.helperPath : commandText(command);
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

/// The program is looked for as the script `program` does it.
void checkProgram(const MountSource& source) {
    const std::string& program = source.command.front();
    const std::string key = source.configurationPath() + ": \"helperCommand\"";
    if (program.find('/') == std::string::npos) {
        if (!findInPath(program))
            throw CommandError(ExitCode::helperUnavailable, program, "is not in PATH; install it, or correct " + key);
        return;
    }
    std::error_code error;
    if (!filesystem::is_regular_file(program, error))
        throw CommandError(ExitCode::helperUnavailable, program, "there is no such program; correct " + key);
    if (::access(program.c_str(), X_OK) != 0)
        throw CommandError(ExitCode::helperUnavailable, program, "cannot be executed: " + errnoText(errno));
}

} // namespace

MountSource readMountSource(const std::string& source) {
    const auto path = realPath(source);
    if (!path)
        throw CommandError(ExitCode::configuration, source, "cannot be used as source directory: " + errnoText(errno));
    if (!filesystem::is_directory(*path))
        throw CommandError(ExitCode::configuration, source, "is not a directory; expected the source directory");
    const std::string configuration = configurationPath(*path);
    const std::string text = readConfiguration(configuration, source);
    try {
        MountSource read{*path, kemvi::KemviMountConfig::decode(text), {}, {}, {}};
        kemvi::FurtherKeys keys = kemvi::FurtherKeys::read(text, read.config.helperPath, configuration);
        read.command = std::move(keys.command);
        read.settings = std::move(keys.settings);
        if (!keys.mountOptions)
            throw kemvi::SettingsError(configuration,
                                       "\"mountOptions\" must be an array of strings, each as -o takes it");
        read.options = std::move(*keys.mountOptions);
        for (auto& secret : kemvi::secretsOf(*path, read.config.repoRoot))
            read.settings.push_back(std::move(secret));
        return read;
    } catch (const kemvi::SettingsError& error) {
        throw CommandError(ExitCode::configuration, error.subject(), error.problem());
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
    if (const auto interpreter = foreignInterpreter(helper); interpreter && filesystem::exists(helper, error)) {
        throw CommandError(ExitCode::configuration, key,
                           helper + " is no script for node, but for " + *interpreter +
                               "; write the configuration anew with: kemvi init --force --command '" + *interpreter +
                               " " + commandText({helper}) + "' " + source.path);
    }
    if (!source.command.empty())
        checkProgram(source);
    if (!findInPath("node")) {
        throw CommandError(ExitCode::helperUnavailable, "node",
                           "is not in PATH; install Node.js (Debian: nodejs) or add its directory to PATH");
    }
}

} // namespace cli
