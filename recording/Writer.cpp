#include "recording/Writer.h"

#include "recording/RecordingError.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <sys/time.h>
#include <utility>

namespace recording {
namespace {

constexpr std::chrono::milliseconds flushInterval{500};

std::int64_t microseconds(Writer::Clock::duration duration) {
    return std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
}

std::string timeNow() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    std::tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%06ldZ", static_cast<long>(now.tv_usec));
    return text.data();
}

} // namespace

Writer::Writer(std::unique_ptr<Output> output, Settings settings, const std::string& kemviVersion,
               const std::string& mountPoint, EndedEarly endedEarly)
    : endedEarly_(std::move(endedEarly)), output_(std::move(output)), maker_(settings) {
    const bool scrambled = settings.names == Names::scrambled;
    const Header header{kemviVersion, timeNow(), scrambled ? std::string() : mountPoint, settings};
    output_->write(header.line() + "\n");
    output_->flush();
    thread_ = std::thread([this] { run(); });
}

Writer::~Writer() {
    close();
}

void Writer::exchange(Clock::time_point sent, Clock::duration took, std::string_view request,
                      std::optional<std::string_view> answer) {
    Event event{true, microseconds(sent - started_), microseconds(took), std::string(request), {}};
    if (answer)
        event.answer.emplace(*answer);
    add(std::move(event));
}

void Writer::kernelRequest(std::string json) {
    add({false, 0, 0, std::move(json), {}});
}

void Writer::add(Event event) {
    const std::size_t size = event.size();
    {
        std::unique_lock lock(mutex_);
        const auto hasRoom = [&] { return ended_ || waitingBytes_ == 0 || waitingBytes_ + size <= mostWaiting; };
        if (changed_.wait_for(lock, longestWait, hasRoom)) {
            if (ended_ || closing_)
                return;
            waitingBytes_ += size;
            waiting_.push_back(std::move(event));
            if (waiting_.size() == 1) // otherwise it is awake, or about to look
                changed_.notify_all();
            return;
        }
    }
    endEarly("cannot be written as fast as it grows");
}

void Writer::endEarly(const std::string& reason) {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(ended_, true))
            return;
        waiting_.clear();
        waitingBytes_ = 0;
        changed_.notify_all();
    }
    if (endedEarly_)
        endedEarly_(reason);
}

// False when there is nothing more to write.
bool Writer::takeWaiting(std::vector<Event>& events) {
    std::unique_lock lock(mutex_);
    const auto hasWork = [&] { return !waiting_.empty() || closing_ || ended_; };
    if (flushed_)
        changed_.wait(lock, hasWork);
    else
        changed_.wait_for(lock, flushInterval, hasWork);
    events.clear();
    events.swap(waiting_);
    return !ended_ && (!events.empty() || !closing_);
}

void Writer::write(const std::vector<Event>& events) {
    for (const Event& event : events) {
        const std::string line = event.isExchange ? maker_.exchange({event.at, event.took, event.first, event.answer})
                                                  : maker_.kernelRequest(event.first);
        if (!line.empty()) {
            output_->write(line + "\n");
            ++lines_;
        }
        const std::lock_guard lock(mutex_);
        waitingBytes_ -= std::min(waitingBytes_, event.size());
        changed_.notify_all();
    }
    if (events.empty()) // nothing came for a while
        output_->flush();
    flushed_ = events.empty();
}

void Writer::run() {
    try {
        for (std::vector<Event> events; takeWaiting(events);)
            write(events);
        {
            const std::lock_guard lock(mutex_);
            if (ended_)
                return;
        }
        output_->write(R"({"end":{"lines":)" + std::to_string(lines_) + "}}\n");
        output_->finish();
    } catch (const std::exception& error) {
        endEarly(error.what());
    }
}

void Writer::close() {
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

} // namespace recording
