#include "cli/CommandError.h"

#include "foundation/Log.h"

#include <atomic>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace {

std::atomic<bool>& messagesGoToLog() {
    static std::atomic<bool> toLog{false};
    return toLog;
}

} // namespace

CommandError::CommandError(ExitCode code, std::string_view subject, std::string_view problem)
    : std::runtime_error(std::string(subject) + ": " + std::string(problem)), code_(code) {}

void sendMessagesToLog() {
    messagesGoToLog() = true;
}

void sendMessagesToStandardError() {
    messagesGoToLog() = false;
}

void printMessage(std::string_view text) {
    if (messagesGoToLog()) {
        static const foundation::Logger logger("kemvi", "Command");
        logger.error({foundation::logPublic(text)});
        return;
    }
    const std::string line = "kemvi: " + escapedControls(text) + "\n";
    // A standard error that cannot be written to leaves nobody to tell.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

} // namespace cli
