#pragma once

#include "foundation/Log.h"

#include <memory>
#include <string>
#include <string_view>

namespace foundation {

// What logging takes from the platform, beside makeSystemLogSink and hasSystemLog: one file for each platform.

/// Where lines go as long as nobody says where.
std::shared_ptr<LogSink> makeDefaultLogSink();

/// A line for people or files, ended, with the time in front if the platform's lines have it. One call at a time.
std::string stampedLine(LogLevel level, std::string_view text);

/// "subject: category: line"; without an empty subject.
std::string labelledLine(std::string_view subject, std::string_view category, std::string_view line);

} // namespace foundation
