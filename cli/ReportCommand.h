#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi report`; once it was given, `result` is what it ended with.
void addReportCommand(CLI::App& app, ExitCode& result);

} // namespace cli
