#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi check` to the command line; `result` receives what it ended with.
void addCheckCommand(CLI::App& app, ExitCode& result);

} // namespace cli
