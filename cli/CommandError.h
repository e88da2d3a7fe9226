#pragma once

#include "cli/ExitCode.h"

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

/// `text` with every control character written as \n, \t, \xNN or \uNNNN, also those that turn the direction of writing
/// or break lines, and with every byte that is not UTF-8 written as \xNN.
std::string escapedControls(std::string_view text);

/// The text of an errno value.
std::string errnoText(int number);

} // namespace cli
