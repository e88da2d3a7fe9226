#include "cli/SupervisorThread.h"

#include "foundation/Log.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <utility>
#include <vector>

namespace cli {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/// How often it is looked at whether a request waits.
constexpr milliseconds usualRound = 1s;
/// While the mount is idle: until work begins.
constexpr milliseconds noRound{-1};
/// The same while a time limit is to be kept, which may be set at any time.
constexpr milliseconds shortRound = 250ms;

std::optional<milliseconds> longestExchange(const fusehost::MountOptions& options) {
    if (!options.operationTimeout)
        return std::nullopt;
    return std::chrono::ceil<milliseconds>(*options.operationTimeout);
}

} // namespace

SupervisorThread::SupervisorThread(Watched watched, const fusehost::MountOptions& options)
    : on_(watched), longestExchange_(longestExchange(options)) {
    on_.supervisor.use(&on_.host);
    thread_ = fusehost::startBackgroundThread([this] { run(); });
}

SupervisorThread::~SupervisorThread() {
    on_.supervisor.use(nullptr);
    end_.signal();
    thread_.join();
}

void SupervisorThread::run() {
    while (!isEnding_)
        fusehost::quietly("watching over the helper", [&] { wait(); });
}

// An idle mount uses no processor time.
bool SupervisorThread::isIdle() {
    fusehost::Monitor& monitor = on_.host.monitor();
    const std::uint64_t before = std::exchange(requests_, monitor.requests());
    if (before != requests_ || monitor.underWay())
        return false;
    monitor.rest();
    return !monitor.underWay();
}

milliseconds SupervisorThread::round() {
    if (on_.supervisor.deadline())
        return shortRound;
    if (isIdle())
        return noRound;
    return longestExchange_ ? std::clamp(*longestExchange_ / 4, 50ms, usualRound) : usualRound;
}

void SupervisorThread::wait() {
    const auto helper = on_.helpers.held();
    const int gone = helper && helper != watched_.lock() ? helper->descriptor() : -1;
    std::array<pollfd, 4> events{pollfd{end_.number(), POLLIN, 0}, pollfd{on_.helpers.started().number(), POLLIN, 0},
                                 pollfd{gone, POLLIN, 0}, pollfd{on_.host.monitor().workBegan().number(), POLLIN, 0}};
    ::poll(events.data(), events.size(), static_cast<int>(round().count()));
    on_.host.monitor().workBegan().clear();
    isEnding_ = events[0].revents != 0;
    if (events[1].revents != 0)
        on_.helpers.started().clear();
    if (events[2].revents != 0) {
        watched_ = helper; // which ends once
        on_.supervisor.helperGone();
    }
    look();
}

void SupervisorThread::look() {
    const auto now = Supervisor::Clock::now();
    if (const auto deadline = on_.supervisor.deadline(); deadline && now >= *deadline)
        on_.supervisor.deadlinePassed();
    endLateHelper(now);
    warn(now);
}

void SupervisorThread::endLateHelper(Supervisor::Clock::time_point now) {
    const auto exchange = longestExchange_ ? on_.exchanges.underWay() : std::nullopt;
    if (!exchange || exchange->since == ended_ || now - exchange->since < *longestExchange_)
        return;
    ended_ = exchange->since;
    on_.supervisor.endLateHelper(*longestExchange_);
}

void SupervisorThread::warn(Supervisor::Clock::time_point now) {
    const fusehost::Monitor& monitor = on_.host.monitor();
    const auto warning = warnings_.look(
        monitor.underWay(), [&] { return monitor.read().waiting; }, now);
    if (!warning)
        return;
    static const auto* const logger = new foundation::Logger("kemvi", "Supervisor");
    std::vector<foundation::LogPiece> line{foundation::logPublic(warning->beginning)};
    if (!warning->path.empty())
        line.push_back(foundation::logPrivate(warning->path));
    line.push_back(foundation::logPublic(warning->end));
    logger->warning(line);
}

} // namespace cli
