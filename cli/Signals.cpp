#include "cli/Signals.h"

#include <initializer_list>
#include <pthread.h>

namespace cli {

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, number);
    }
    return set;
}

void blockStopSignals() {
    const sigset_t set = stopSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace cli
