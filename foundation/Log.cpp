#include "foundation/Log.h"

#include "foundation/ControlCharacters.h"
#include "foundation/PlatformLog.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace foundation {
namespace {

// What logging keeps for the whole process: where lines go and what is let through.
struct Settings {
    std::mutex lock;
    std::shared_ptr<LogSink> sink;
    std::atomic<bool> showPrivate{false};
    std::atomic<LogLevel> level{LogLevel::info};
};

Settings& settings() {
    // Never destroyed: lines may still be written while other static objects are torn down.
    static Settings* const instance = new Settings;
    return *instance;
}

LogPiece valuePiece(LogPiece::Privacy privacy, std::string_view value) {
    LogPiece piece("");
    piece.privacy = privacy;
    piece.text = value;
    return piece;
}

std::vector<LogSegment> segmentsOf(const std::vector<LogPiece>& pieces, bool showPrivate) {
    std::vector<LogSegment> segments(1);
    for (const LogPiece& piece : pieces) {
        const bool isPrivate = piece.privacy == LogPiece::Privacy::privateValue && !showPrivate;
        if (segments.back().isPrivate != isPrivate)
            segments.push_back({isPrivate, {}});
        segments.back().text += piece.text;
    }
    for (LogSegment& segment : segments)
        segment.text = escapedControls(segment.text);
    return segments;
}

} // namespace

LogSink::~LogSink() = default;

void LogSink::writeSegments(LogLevel level, std::string_view subsystem, std::string_view category,
                            const std::vector<LogSegment>& segments) {
    std::string line;
    for (const LogSegment& segment : segments)
        line += segment.isPrivate ? "<private>" : segment.text;
    write(level, subsystem, category, line);
}

LogPiece logPublic(std::string_view value) {
    return valuePiece(LogPiece::Privacy::publicValue, value);
}

LogPiece logPrivate(std::string_view value) {
    return valuePiece(LogPiece::Privacy::privateValue, value);
}

void Log::setSink(std::shared_ptr<LogSink> sink) {
    std::lock_guard guard(settings().lock);
    settings().sink = std::move(sink);
}

void Log::showPrivateValues(bool show) {
    settings().showPrivate = show;
}

void Log::setLevel(LogLevel level) {
    settings().level = level;
}

bool Log::isWritten(LogLevel level) {
    return level >= settings().level.load(std::memory_order_relaxed);
}

void Logger::log(LogLevel level, const std::vector<LogPiece>& pieces) const {
    if (!Log::isWritten(level))
        return;
    Settings& current = settings();
    const std::vector<LogSegment> segments = segmentsOf(pieces, current.showPrivate);
    std::lock_guard guard(current.lock);
    if (!current.sink)
        current.sink = makeDefaultLogSink();
    current.sink->writeSegments(level, subsystem_, category_, segments);
}

void fatalError(std::string_view reason) {
    static const Logger logger(bundleIdentifier, "Fatal");
    logger.log(LogLevel::fault, {"fatal error: ", logPublic(reason)});
    std::abort();
}

} // namespace foundation
