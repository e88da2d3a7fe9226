#include "cli/check/StopSignals.h"

#include <cerrno>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace cli::check {

namespace {

// Until the process ends.
void passOn(const sigset_t& signals, const foundation::Descriptor& into) {
    for (;;) {
        int number = 0;
        const int failure = ::sigwait(&signals, &number);
        if (failure != 0) {
            if (failure != EINTR)
                ::pause(); // all signals are ignored, and the system refuses to wait for none
            continue;
        }
        const char byte = 0;
        if (::write(into.number(), &byte, 1) != 1)
            return;
    }
}

} // namespace

StopSignals::StopSignals(const sigset_t& signals) {
    foundation::PipeEnds pipe = foundation::openPipe();
    if (!pipe.reading.isOpen())
        return;
    ::fcntl(pipe.reading.number(), F_SETFL, O_NONBLOCK);
    std::thread([signals, into = std::move(pipe.writing)] { passOn(signals, into); }).detach();
    source_ = std::move(pipe.reading);
}

bool StopSignals::take() {
    char byte = 0;
    return ::read(source_.number(), &byte, 1) == 1;
}

} // namespace cli::check
