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
        const std::string news = std::exchange(news_, {}) + (manager_.watchdog() ? "WATCHDOG=1\n" : "");
        lock.unlock();
        fusehost::quietly("telling the service manager how the mount is", [&] {
            if (!news.empty())
                manager_.tell(news);
            tellState();
        });
        lock.lock();
        changed_.wait_for(lock, interval, [&] { return stopped_ || !news_.empty(); });
    }
}

void ServiceReport::tellState() {
    std::string state = state_();
    if (state == lastTold_)
        return;
    manager_.tell("STATUS=" + state + "\n");
    lastTold_ = std::move(state);
}

} // namespace cli
