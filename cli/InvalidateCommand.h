#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds "kemvi invalidate" to the command line.
void addInvalidateCommand(CLI::App& app, ExitCode& result);

} // namespace cli
