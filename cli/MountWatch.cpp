#include "cli/MountWatch.h"

#include "cli/Signals.h"
#include "hosts/fuse/Unmounting.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr const char* watchArgument = "--watch-mount";
constexpr const char* released = "released";

/// All that fusermount3 needs to be found.
std::map<std::string, std::string> watchEnvironment() {
    const char* path = std::getenv("PATH");
    return {{"PATH", path != nullptr ? path : "/usr/bin:/bin"}};
}

} // namespace

MountWatch::MountWatch(const std::string& mountPoint) {
    process_.launch({"/proc/self/exe",
                     {watchArgument, mountPoint},
                     watchEnvironment(),
                     pipe_.fileHandleForReading().fileDescriptor(),
                     STDERR_FILENO});
    pipe_.fileHandleForReading().close();
}

MountWatch::~MountWatch() {
    release();
    pipe_.fileHandleForWriting().close();
    process_.waitUntilExit();
}

void MountWatch::begin(unsigned deviceMinor) {
    pipe_.fileHandleForWriting().write(std::to_string(deviceMinor) + "\n");
}

void MountWatch::release() {
    pipe_.fileHandleForWriting().write(std::string(released) + "\n");
}

bool isCalledToWatch(int argc, char** argv) {
    return argc == 3 && std::string_view(argv[1]) == watchArgument;
}

int runMountWatch(const std::string& mountPoint) {
    ::prctl(PR_SET_NAME, MountWatch::processName);
    blockStopSignals();
    std::string watched;
    for (std::string line; std::getline(std::cin, line);) {
        watched = line == released ? std::string() : line;
    }
    if (!watched.empty()) {
        fusehost::unmountStaleDevice(static_cast<unsigned>(std::stoul(watched)), mountPoint);
    }
    return EXIT_SUCCESS;
}

} // namespace cli
