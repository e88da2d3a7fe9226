#pragma once

#include "cli/ExitCode.h"

#include <CLI/CLI.hpp>

namespace cli {

/// Adds `kemvi record`; once it was given, `result` is what it ended with.
void addRecordCommand(CLI::App& app, ExitCode& result);

} // namespace cli
