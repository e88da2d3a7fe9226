#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi init` to the command line; `result` receives what it ended with.
void addInitCommand(CLI::App& app, ExitCode& result);

} // namespace cli
