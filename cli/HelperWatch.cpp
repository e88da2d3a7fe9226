#include "cli/HelperWatch.h"

#include "cli/Signals.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace cli {

namespace {

constexpr const char* watchArgument = "--watch-helper";

// Milliseconds. A helper whose input ended may have something to finish; one that is still there then hangs.
constexpr int aloneFor = 1000;
constexpr int afterTermination = 1000;

void awaitEndOfInput() {
    char ignored = 0;
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, &ignored, 1);
    } while (count > 0 || (count < 0 && errno == EINTR));
}

} // namespace

HelperWatch::HelperWatch(const ProcessHandle& helper) {
    process_.launch({"/proc/self/exe",
                     {watchArgument, std::to_string(helper.pid())},
                     {},
                     pipe_.fileHandleForReading().fileDescriptor(),
                     helper.descriptor()});
    pipe_.fileHandleForReading().close();
}

HelperWatch::~HelperWatch() {
    pipe_.fileHandleForWriting().close();
    process_.waitUntilExit();
}

bool isCalledToWatchHelper(int argc, char** argv) {
    return argc == 3 && std::string_view(argv[1]) == watchArgument;
}

int runHelperWatch(const char* helper) {
    ::prctl(PR_SET_NAME, HelperWatch::processName);
    blockStopSignals();
    awaitEndOfInput();
    std::vector<ProcessHandle> helpers;
    helpers.emplace_back(static_cast<pid_t>(std::strtol(helper, nullptr, 10)), STDOUT_FILENO);
    endProcesses(helpers, aloneFor, afterTermination);
    return EXIT_SUCCESS;
}

} // namespace cli
