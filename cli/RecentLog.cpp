#include "cli/RecentLog.h"

#include <chrono>
#include <ctime>
#include <utility>

namespace cli {

namespace {

/// Now, such as "2026-11-22T05:10:00.123Z".
std::string timeText() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return std::string(text, length) + "." + std::to_string(1000 + milliseconds).substr(1) + "Z";
}

} // namespace

std::shared_ptr<foundation::LogSink> RecentLog::before(std::shared_ptr<foundation::LogSink> next) {
    const std::lock_guard guard(lock_);
    next_ = std::move(next);
    return shared_from_this();
}

void RecentLog::write(foundation::LogLevel level, std::string_view subsystem, std::string_view category,
                      std::string_view line) {
    std::shared_ptr<foundation::LogSink> next;
    {
        const std::lock_guard guard(lock_);
        keep(timeText() + " " + std::string(category) + ": " + std::string(line));
        next = next_;
    }
    if (next)
        next->write(level, subsystem, category, line);
}

void RecentLog::keep(std::string text) {
    std::erase_if(followers_, [](const auto& follower) { return !follower->isWanted(); });
    if (!followers_.empty()) {
        const std::string event = control::Members().add("line", text).json();
        for (const auto& follower : followers_)
            follower->push(event);
    }
    bytes_ += text.size();
    lines_.push_back(std::move(text));
    while (lines_.size() > mostLines || (bytes_ > mostBytes && lines_.size() > 1)) {
        bytes_ -= lines_.front().size();
        lines_.pop_front();
    }
}

std::vector<std::string> RecentLog::lines() const {
    const std::lock_guard guard(lock_);
    return linesWithLock();
}

std::vector<std::string> RecentLog::linesWithLock() const {
    return {lines_.begin(), lines_.end()};
}

void RecentLog::follow(control::Reply& reply) {
    const std::lock_guard guard(lock_);
    followers_.push_back(reply.stream(control::Members().add("lines", linesWithLock())));
}

} // namespace cli
