#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi stats` to the command line; `result` receives what it ended with.
void addStatsCommand(CLI::App& app, ExitCode& result);

} // namespace cli
