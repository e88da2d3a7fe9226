#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi list` to the command line; `result` receives what it ended with.
void addListCommand(CLI::App& app, ExitCode& result);

} // namespace cli
