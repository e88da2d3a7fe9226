#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi status` to the command line; `result` receives what it ended with.
void addStatusCommand(CLI::App& app, ExitCode& result);

} // namespace cli
