#pragma once

#include "cli/ExitCode.h"
#include "foundation/ControlCharacters.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace cli {

/// Ends a command: the one line that the user reads, and the exit code.
class CommandError : public std::runtime_error {
public:
    /// `subject` is the path, option or process that is at fault; `problem` says what is wrong and what to do.
    CommandError(ExitCode code, std::string_view subject, std::string_view problem);

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

/// Writes "kemvi: <text>" and a line break to standard error in one call. Control characters in the text (a line break
/// in a file name) are shown escaped, so that a message always is one line and does nothing to a terminal.
void printMessage(std::string_view text);

/// From here on messages are lines of the log: standard error leads nowhere any more, or back into the log.
void sendMessagesToLog();

/// From here on messages go to standard error, as at the beginning.
void sendMessagesToStandardError();

using foundation::escapedControls;

/// The text of an errno value.
std::string errnoText(int number);

} // namespace cli
