#include "cli/check/Attention.h"

#include "cli/CommandError.h"
#include "cli/Signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <poll.h>
#include <utility>

namespace cli::check {

namespace {

using namespace std::chrono_literals;

constexpr auto quietTime = 2s;           // what lasts no longer is done in silence
constexpr auto longestSilence = 10s;     // between two lines of progress
constexpr auto graceForAnswer = 2s;      // after the first signal
constexpr auto answerWhileCleaning = 3s; // after a signal
constexpr auto longestCleaning = 60s;    // after a signal

/// The signals that ask for the end, less those that whoever started the command does not want to reach it (nohup).
sigset_t signalsToTake() {
    sigset_t set = stopSignals();
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};

        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
            ::sigdelset(&set, number);
    }
    return set;
}

} // namespace

Attention::Attention(std::string command)
    : command_(std::move(command)), signals_(signalsToTake()), tellAt_(started_ + quietTime) {
    if (!signals_.isOpen())
        throw CommandError(ExitCode::failure, command_, "cannot wait for signals: " + errnoText(errno));
}

void Attention::beginCleaning() {
    cleaning_ = true;
    if (interrupted())
        cleaningEnd_ = Clock::now() + longestCleaning;
}

void Attention::beginExchange() {
    ++exchanges_;
    if (interrupted() && cleaning_)
        waitsEnd_ = gaveUp() ? Clock::now() : std::min(cleaningEnd_, Clock::now() + answerWhileCleaning);
}

bool Attention::untilReady(int descriptor, short events, Clock::time_point deadline) {
    for (;;) {
        const auto now = Clock::now();
        tellProgress(now);
        if (now >= waitsEnd_)
            return false; // also where there is something: it may be without end
        const auto wake = std::min({deadline, waitsEnd_, tellAt_});
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(wake - now).count();
        std::array<pollfd, 2> sources{pollfd{descriptor, events, 0}, pollfd{signals_.descriptor(), POLLIN, 0}};
        const int ready = ::poll(sources.data(), sources.size(), static_cast<int>(std::max<std::int64_t>(0, left)));
        if (ready > 0 && sources[1].revents != 0)
            takeSignals();
        if (ready > 0 && sources[0].revents != 0)
            return true;
        if (Clock::now() >= deadline)
            return false;
    }
}

void Attention::takeSignals() {
    while (signals_.take())
        onSignal();
}

void Attention::onSignal() {
    const auto now = Clock::now();
    if (++received_ > 1) {
        waitsEnd_ = now;
        return;
    }
    waitsEnd_ = now + (cleaning_ ? answerWhileCleaning : graceForAnswer);
    cleaningEnd_ = now + longestCleaning;
    printMessage(place_.empty() ? std::string("interrupted; ending the helper")
                                : "interrupted; removing " + place_ + " first (interrupt again to leave it there)");
}

void Attention::tellProgress(Clock::time_point now) {
    if (now < tellAt_)
        return;
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(now - started_);
    printMessage(command_ + ": " + std::to_string(elapsed.count()) + " s, " + std::to_string(exchanges_) +
                 " requests; now: " + doing_);
    tellAt_ = now + std::clamp<std::chrono::seconds>(elapsed, quietTime, longestSilence);
}

} // namespace cli::check
