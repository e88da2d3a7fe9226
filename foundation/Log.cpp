#include "foundation/Log.h"

#include "foundation/ControlCharacters.h"

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

std::shared_ptr<LogSink> defaultSink() {
#ifdef __APPLE__
    return makeSystemLogSink("kemvi");
#else
    return makeStderrLogSink();
#endif
}

LogPiece valuePiece(LogPiece::Privacy privacy, std::string_view value) {
    LogPiece piece("");
    piece.privacy = privacy;
    piece.text = value;
    return piece;
}

} // namespace

LogSink::~LogSink() = default;

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
    std::string line;
    for (const LogPiece& piece : pieces) {
        const bool hidden = piece.privacy == LogPiece::Privacy::privateValue && !current.showPrivate;
        line += hidden ? std::string_view("<private>") : std::string_view(piece.text);
    }
    std::lock_guard guard(current.lock);
    if (!current.sink)
        current.sink = defaultSink();
    current.sink->write(level, subsystem_, category_, escapedControls(line));
}

void fatalError(std::string_view reason) {
    static const Logger logger(bundleIdentifier, "Fatal");
    logger.log(LogLevel::fault, {"fatal error: ", logPublic(reason)});
    std::abort();
}

} // namespace foundation
