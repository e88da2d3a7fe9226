#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi trace` to the command line; `result` receives what it ended with.
void addTraceCommand(CLI::App& app, ExitCode& result);

} // namespace cli
