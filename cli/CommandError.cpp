#include "cli/CommandError.h"

#include <cstdio>
#include <system_error>
#include <unistd.h>

namespace cli {

CommandError::CommandError(ExitCode code, std::string_view subject, std::string_view problem)
    : std::runtime_error(std::string(subject) + ": " + std::string(problem)), code_(code) {}

std::string escapedControls(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            shown += "\\n";
        } else if (c == '\t') {
            shown += "\\t";
        } else if (byte < 0x20 || byte == 0x7f) {
            constexpr std::string_view digits = "0123456789abcdef";
            shown += "\\x";
            shown += digits[byte >> 4];
            shown += digits[byte & 15];
        } else {
            shown += c;
        }
    }
    return shown;
}

void printMessage(std::string_view text) {
    const std::string line = "kemvi: " + escapedControls(text) + "\n";
    // A standard error that cannot be written to leaves nobody to tell.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

} // namespace cli
