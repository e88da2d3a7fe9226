#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi replay`; once it was given, `result` is what it ended with.
void addReplayCommand(CLI::App& app, ExitCode& result);

} // namespace cli
