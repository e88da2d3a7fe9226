#pragma once

#include "cli/ExitCode.h"
#include "cli/record/RecordSettings.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli {

/// What a mount is asked for with.
struct MountRequest {
    std::string source;
    std::string mountPoint;
    std::vector<std::string> options; // each a list separated by commas
    bool foreground = false;
    bool checkOnly = false; // everything but the mount itself
    bool verbose = false;
    bool showPrivate = false;
    std::string logFile;  // empty: none
    std::string logLevel; // empty: the usual one
    bool watch = false;   // start the helper anew when its files change
    std::string record;   // a file; empty: none
    RecordOptions recordOptions;
};

/// Adds `kemvi mount` to the command line; `result` receives what it ended with.
void addMountCommand(CLI::App& app, ExitCode& result);

/// Checks, mounts and serves. Without `foreground` it returns as soon as the mount is ready. Throws CommandError.
ExitCode mount(const MountRequest& request);

} // namespace cli
