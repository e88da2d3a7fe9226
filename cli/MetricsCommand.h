#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi metrics` to the command line; `result` receives what it ended with.
void addMetricsCommand(CLI::App& app, ExitCode& result);

} // namespace cli
