#include "cli/Signals.h"

#include <array>
#include <pthread.h>

namespace cli {

namespace {

constexpr std::array allStopSignals{SIGINT, SIGTERM, SIGHUP};

bool isIgnored(int number) {
    struct sigaction action {};

    return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : allStopSignals)
        if (!isIgnored(number))
            sigaddset(&set, number);
    return set;
}

void heedAllStopSignals() {
    // Never unblocked with the default in force, which would end the process.
    sigset_t set;
    sigemptyset(&set);
    for (const int number : allStopSignals)
        sigaddset(&set, number);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (const int number : allStopSignals)
        std::signal(number, SIG_DFL);
}

void blockStopSignals() {
    const sigset_t set = stopSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace cli
