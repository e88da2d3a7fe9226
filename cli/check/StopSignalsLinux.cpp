#include "cli/check/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace cli::check {

StopSignals::StopSignals(const sigset_t& signals) : source_(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK)) {}

bool StopSignals::take() {
    signalfd_siginfo received{};
    return ::read(source_.number(), &received, sizeof received) == sizeof received;
}

} // namespace cli::check
