#include "hosts/fuse/calls/FailureLog.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"
#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <vector>

namespace fusehost {
namespace {

using foundation::ErrorOrigin;
using foundation::LogLevel;
using foundation::LogPiece;
using foundation::logPrivate;
using foundation::logPublic;
using foundation::NSError;

constexpr std::size_t mostKinds = 32;     // of more, which only invented error names make, the rest is one kind
constexpr std::size_t longestText = 1024; // bytes of what an error says of itself

// What programs expect and meet all the time: they ask for what may not be there, and are refused what a volume does
// not do.
bool isEveryday(const NSError& error, int number) {
    constexpr std::array everyday = {ENOENT, EEXIST, ENOTEMPTY, ENOTDIR, EISDIR, EPERM, EROFS, EOPNOTSUPP};
    return error.isPosix() && std::find(everyday.begin(), everyday.end(), number) != everyday.end();
}

LogLevel levelOf(const NSError& error, int number) {
    return isEveryday(error, number) ? LogLevel::debug : LogLevel::error;
}

std::string_view cut(std::string_view text) {
    return text.substr(0, longestText);
}

// Helpers like to name the path in what they say; it is as private there.
void addText(std::vector<LogPiece>& line, std::string_view text, const std::string& subject) {
    text = cut(text);
    while (subject.size() > 1) {
        const std::size_t at = text.find(subject);
        if (at == std::string_view::npos)
            break;
        line.push_back(logPublic(text.substr(0, at)));
        line.push_back(logPrivate(subject));
        text.remove_prefix(at + subject.size());
    }
    line.push_back(logPublic(text));
}

std::vector<LogPiece> beginLine(const NSError& error) {
    std::vector<LogPiece> line;
    if (!error.origin)
        return {"an operation failed: "};
    line.push_back(logPublic(error.origin->operation));
    if (!error.origin->subject.empty()) {
        line.emplace_back(" of ");
        line.push_back(logPrivate(cut(error.origin->subject)));
    }
    line.emplace_back(" failed: ");
    return line;
}

std::vector<LogPiece> lineOf(const NSError& error, int number, std::uint64_t times) {
    std::vector<LogPiece> line = beginLine(error);
    const ErrorOrigin none;
    const ErrorOrigin& origin = error.origin ? *error.origin : none;
    const std::string text = error.description();
    if (!origin.code.empty() && !text.starts_with(origin.code)) {
        line.push_back(logPublic(cut(origin.code)));
        line.emplace_back(": ");
    }
    addText(line, text, origin.subject);
    line.emplace_back(" (programs see \"");
    line.push_back(logPublic(std::strerror(number)));
    line.emplace_back("\")");
    if (times > 1) {
        line.emplace_back(", ");
        line.push_back(logPublic(std::to_string(times)));
        line.emplace_back(" times since the last such line");
    }
    return line;
}

std::string kindOf(const NSError& error, int number) {
    if (!error.origin)
        return error.domain + " " + std::to_string(error.code);
    return error.origin->operation + " " + std::string(cut(error.origin->code)) + " " + std::to_string(number);
}

} // namespace

FailureLog::FailureLog(StateExplanation explain, std::chrono::milliseconds interval)
    : explain_(std::move(explain)), interval_(interval) {}

FailureLog::~FailureLog() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
        changed_.notify_all();
    }
    if (teller_.joinable())
        teller_.join();
    tellDue(Clock::time_point::max());
}

void FailureLog::note(const NSError& error, int number) noexcept {
    try {
        if (!foundation::Log::isWritten(levelOf(error, number)))
            return;
        if (error.origin && !error.origin->state.empty())
            noteState(error);
        else
            noteKind(error, number);
    } catch (...) {
        // The operation has its answer; what cannot be told is lost.
    }
}

void FailureLog::forgetState() noexcept {
    const std::lock_guard guard(lock_);
    state_.clear();
}

void FailureLog::noteState(const NSError& error) {
    const ErrorOrigin& origin = *error.origin;
    {
        const std::lock_guard guard(lock_);
        if (state_ == origin.state)
            return;
        state_ = origin.state;
    }
    std::vector<LogPiece> line = beginLine(error);
    addText(line, error.description(), origin.subject);
    line.emplace_back(" (request ");
    line.push_back(logPublic(origin.request));
    line.emplace_back(")");
    if (const std::string more = explain_ ? explain_(origin) : std::string(); !more.empty()) {
        line.emplace_back("; ");
        line.push_back(logPublic(more));
    }
    line.emplace_back("; operations fail with \"");
    line.push_back(logPublic(std::strerror(EIO)));
    line.emplace_back("\" from here on");
    hostLog().error(line);
}

bool FailureLog::isOver(const Kind& kind, Clock::time_point now) const {
    return kind.untold == 0 && now - interval_ >= kind.told;
}

void FailureLog::noteKind(const NSError& error, int number) {
    const std::lock_guard guard(lock_);
    const auto now = Clock::now();
    std::string name = kindOf(error, number);
    if (kinds_.size() >= mostKinds && kinds_.find(name) == kinds_.end()) {
        std::erase_if(kinds_, [&](const auto& kind) { return isOver(kind.second, now); });
        if (kinds_.size() >= mostKinds)
            name = "others";
    }
    const auto [place, isNew] = kinds_.try_emplace(name);
    Kind& kind = place->second;
    if (isNew || isOver(kind, now)) {
        kind.told = now;
        hostLog().log(levelOf(error, number), lineOf(error, number, 1));
        return;
    }
    ++kind.untold;
    kind.last = error;
    kind.number = number;
    if (!counts_) {
        counts_ = true;
        startTelling();
    }
}

// Needs lock_.
void FailureLog::startTelling() {
    try {
        if (!teller_.joinable())
            teller_ = startBackgroundThread([this] { quietly("counting failures", [&] { tellCounted(); }); });
    } catch (const std::system_error&) {
        return; // no thread to be had: told at the end
    }
    changed_.notify_all();
}

void FailureLog::tellCounted() {
    std::unique_lock guard(lock_);
    while (!ending_) {
        if (!counts_) {
            changed_.wait(guard);
            continue;
        }
        guard.unlock();
        const auto next = tellDue(Clock::now());
        guard.lock();
        if (counts_ && !ending_)
            changed_.wait_until(guard, next);
    }
}

// Returns when the next count is due.
FailureLog::Clock::time_point FailureLog::tellDue(Clock::time_point now) {
    const std::lock_guard guard(lock_);
    auto next = Clock::time_point::max();
    counts_ = false;
    for (auto place = kinds_.begin(); place != kinds_.end();) {
        Kind& kind = place->second;
        if (isOver(kind, now)) {
            place = kinds_.erase(place);
            continue;
        }
        ++place;
        if (now - interval_ < kind.told) {
            next = std::min(next, kind.told + interval_);
            counts_ = counts_ || kind.untold > 0;
        } else {
            hostLog().log(levelOf(kind.last, kind.number), lineOf(kind.last, kind.number, kind.untold));
            kind.told = now;
            kind.untold = 0;
        }
    }
    return next;
}

} // namespace fusehost
