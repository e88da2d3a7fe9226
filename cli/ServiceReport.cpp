#include "cli/ServiceReport.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace cli {

namespace {

using std::chrono::microseconds;

constexpr microseconds untilNextLook = std::chrono::seconds(5);
constexpr microseconds untilNextTry = std::chrono::milliseconds(100); // where the manager has no room

} // namespace

ServiceReport::ServiceReport(const ServiceManager& manager, std::function<std::string()> state)
    : manager_(manager), state_(std::move(state)) {
    if (manager_.listens())
        thread_ = fusehost::startBackgroundThread([this] { run(); });
}

void ServiceReport::ready() {
    wakeWith("READY=1\n");
}

void ServiceReport::stopping() {
    wakeWith("STOPPING=1\n");
}

void ServiceReport::wakeWith(const char* line) {
    const std::lock_guard lock(mutex_);
    news_ += line;
    changed_.notify_all();
}

void ServiceReport::stop() noexcept {
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void ServiceReport::run() {
    // Twice as often as is asked for, so that a late one is no missing one.
    const auto interval = std::min(untilNextLook, manager_.watchdog().value_or(2 * untilNextLook) / 2);
    std::unique_lock lock(mutex_);
    while (!stopped_) {
        const std::string news = std::exchange(news_, {});
        lock.unlock();
        bool isTold = true;
        fusehost::quietly("telling the service manager how the mount is", [&] { isTold = tell(news); });
        lock.lock();
        if (isTold) {
            changed_.wait_for(lock, interval, [&] { return stopped_ || !news_.empty(); });
        } else {
            news_.insert(0, news); // it waits for the news that the mount is ready, which come once
            changed_.wait_for(lock, std::min(interval, untilNextTry), [&] { return stopped_; });
        }
    }
}

bool ServiceReport::tell(const std::string& news) {
    const std::string lines = news + (manager_.watchdog() ? "WATCHDOG=1\n" : "");
    if (!lines.empty() && !manager_.tell(lines))
        return false;
    tellState();
    return true;
}

// A state that does not get through is told at the next look, if it lasts.
void ServiceReport::tellState() {
    std::string state = state_();
    if (state != lastTold_ && manager_.tell("STATUS=" + state + "\n"))
        lastTold_ = std::move(state);
}

} // namespace cli
