#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

/// Runs a command line with the subcommands of `app`, which put what they end with into `result`, and returns the exit
/// status. `missing` is what a user reads who gives none. Throws CommandError.
int runCommandLine(CLI::App& app, const ExitCode& result, const std::string& missing, int argc, char** argv);

} // namespace cli
