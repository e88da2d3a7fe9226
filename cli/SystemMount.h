#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

/// The command of macOS that mounts a source directory, as a shell takes it.
std::string systemMount(const std::string& source, const std::string& mountPoint);

/// Adds `kemvi mount` where the system itself mounts: it says how.
void addSystemMountCommand(CLI::App& app, ExitCode& result);

} // namespace cli
