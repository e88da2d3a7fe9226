#include "cli/StopControl.h"

#include "cli/CommandError.h"
#include "cli/Signals.h"
#include "hosts/fuse/calls/Quietly.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace cli {

namespace {

using namespace std::chrono_literals;

constexpr auto slowStart = 5s;
constexpr auto slowEnd = 3s;
/// What the kernel holds back is limited to some tens of megabytes, and service managers give a service a minute and a
/// half to end.
constexpr auto longestWriting = 30s;
constexpr auto retryKilling = 100ms;
constexpr auto endAfterKilling = 2s;

} // namespace

StopControl::StopControl(fusehost::FuseHost& host, const HelperProcesses& helpers, const std::string& mountPoint)
    : host_(host), helpers_(helpers), mountPoint_(mountPoint) {
    const sigset_t stops = stopSignals();
    signals_ = foundation::Descriptor(::signalfd(-1, &stops, SFD_CLOEXEC));
    phaseChanged_ = foundation::Descriptor(::eventfd(0, EFD_CLOEXEC));
    if (!signals_.isOpen() || !phaseChanged_.isOpen())
        throw CommandError(ExitCode::failure, mountPoint, "cannot wait for signals: " + errnoText(errno));
    deadline_ = Clock::now() + slowStart;
    thread_ = std::thread([this] { run(); });
}

StopControl::~StopControl() {
    enter(Phase::ended);
    thread_.join();
}

void StopControl::enter(Phase phase) {
    phase_ = phase;
    ::eventfd_write(phaseChanged_.number(), 1);
}

void StopControl::run() {
    while (phase_ != Phase::ended)
        fusehost::quietly("saying what the end waits for", [&] { wait(); });
}

void StopControl::wait() {
    int timeout = -1;
    if (deadline_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - Clock::now());
        timeout = static_cast<int>(std::max<std::int64_t>(0, left.count()));
    }
    std::array<pollfd, 2> sources{pollfd{phaseChanged_.number(), POLLIN, 0}, pollfd{signals_.number(), POLLIN, 0}};
    const int ready = ::poll(sources.data(), sources.size(), timeout);
    if (eventfd_t changes = 0;
        ready > 0 && sources[0].revents != 0 && ::eventfd_read(phaseChanged_.number(), &changes) == 0)
        onPhase();
    if (phase_ == Phase::ended)
        return;
    if (signalfd_siginfo received{}; ready > 0 && sources[1].revents != 0 &&
                                     ::read(signals_.number(), &received, sizeof received) == sizeof received)
        onSignal();
    if (deadline_ && Clock::now() >= *deadline_) {
        deadline_.reset();
        onDeadline();
    }
}

void StopControl::onPhase() {
    if (phase_ == Phase::serving && !stopRequested_) {
        deadline_.reset();
    } else if (phase_ == Phase::writing && !gaveUp_) {
        writingEnds_ = Clock::now() + longestWriting;
        deadline_ = Clock::now() + slowEnd;
    } else if (phase_ == Phase::ending && !gaveUp_ && !named_) {
        deadline_ = Clock::now() + slowEnd;
    }
}

void StopControl::onSignal() {
    if (phase_ == Phase::starting) {
        interrupted_ = true;
        stopRequested_ = true;
        host_.requestStop(); // the phase may just be changing
        deadline_ = Clock::now();
    } else if (!stopRequested_ && !named_) {
        stopRequested_ = true;
        host_.requestStop();
        if (!deadline_)
            deadline_ = Clock::now() + slowEnd;
    } else if (!gaveUp_) {
        gaveUp_ = true;
        host_.refuseRequests();
        helpers_.kill();
        deadline_ = Clock::now() + endAfterKilling;
    }
}

void StopControl::onDeadline() {
    if (phase_ == Phase::starting && interrupted_) {
        // The helper may be on its way to be started: keep at it until the start has failed.
        helpers_.kill();
        deadline_ = Clock::now() + retryKilling;
    } else if (phase_ == Phase::starting) {
        tell("to answer its first request");
    } else if (gaveUp_) {
        // Even without its helper the mount does not come to an end; the kernel releases its users when we are gone,
        // and the watch over the mount takes it away.
        ::_exit(static_cast<int>(ExitCode::gaveUpWaiting));
    } else if (phase_ == Phase::writing && !lostChanges_) {
        onSlowWriting();
    } else {
        named_ = true;
        tell("to end; another signal kills it");
    }
}

void StopControl::onSlowWriting() {
    const auto left = std::chrono::ceil<std::chrono::seconds>(writingEnds_ - Clock::now()).count();
    if (left > 0) {
        printMessage(mountPoint_ + ": still writing what programs have changed to " + helperName() + ", for at most " +
                     std::to_string(left) + " s more; another signal kills it");
        deadline_ = writingEnds_;
    } else {
        printMessage(mountPoint_ +
                     ": not everything that programs have changed could be written in time; the rest is lost");
        lostChanges_ = true;
        host_.refuseRequests();
        deadline_ = Clock::now() + slowEnd;
    }
}

std::string StopControl::helperName() const {
    const auto pid = helpers_.pid();
    return pid ? "the helper (pid " + std::to_string(*pid) + ")" : "the helper";
}

void StopControl::tell(const std::string& what) const {
    printMessage(mountPoint_ + ": still waiting for " + helperName() + " " + what);
}

} // namespace cli
