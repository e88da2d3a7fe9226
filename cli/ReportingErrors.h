#pragma once

#include "cli/ExitCode.h"

#include <functional>

namespace cli {

/// Runs `serve` and turns what it throws into a message on standard error and an exit code.
ExitCode reportingErrors(const std::function<ExitCode()>& serve);

} // namespace cli
