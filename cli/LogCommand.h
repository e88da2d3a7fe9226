#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi log` to the command line; `result` receives what it ended with.
void addLogCommand(CLI::App& app, ExitCode& result);

} // namespace cli
