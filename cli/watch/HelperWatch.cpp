#include "cli/watch/HelperWatch.h"

#include "foundation/Log.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <array>
#include <poll.h>
#include <utility>

namespace cli {

HelperWatch::HelperWatch(std::vector<std::string> roots, std::string excluded)
    : helper_(std::move(roots), std::move(excluded)) {}

HelperWatch::~HelperWatch() {
    end();
}

void HelperWatch::begin(Supervisor& supervisor) {
    thread_ = fusehost::startBackgroundThread([this, &supervisor] { run(supervisor); });
}

void HelperWatch::end() noexcept {
    if (!thread_.joinable())
        return;
    end_.signal();
    thread_.join();
}

void HelperWatch::run(Supervisor& supervisor) {
    while (!isEnding_)
        fusehost::quietly("watching the helper's files", [&] { wait(supervisor); });
}

void HelperWatch::wait(Supervisor& supervisor) {
    using Clock = QuietTime::Clock;
    const auto left = quiet_.left(Clock::now());
    std::array<pollfd, 2> events{pollfd{end_.number(), POLLIN, 0}, pollfd{helper_.descriptor(), POLLIN, 0}};
    ::poll(events.data(), events.size(), left ? static_cast<int>(left->count()) : -1);
    isEnding_ = events[0].revents != 0;
    if (isEnding_)
        return;
    if (events[1].revents != 0 && helper_.take())
        quiet_.saw(Clock::now());
    if (!quiet_.isOver(Clock::now()))
        return;
    const auto news = helper_.look(supervisor.isHelperGone());
    tell(news);
    if (!news.change.empty())
        supervisor.restartAfter(news.change);
}

void HelperWatch::tell(const WatchedHelper::News& news) const {
    static const auto* const logger = new foundation::Logger("kemvi", "Supervisor");
    if (!news.missing.empty())
        logger->warning({foundation::logPublic(news.missing), "; the helper goes on as it is until that is back"});
    if (!news.problem.empty())
        logger->error({foundation::logPublic(news.problem), "; what changes there is not seen"});
}

} // namespace cli
