#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi unmount` to the command line; `result` receives what it ended with.
void addUnmountCommand(CLI::App& app, ExitCode& result);

} // namespace cli
