#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi restart` to the command line; `result` receives what it ended with.
void addRestartCommand(CLI::App& app, ExitCode& result);

} // namespace cli
