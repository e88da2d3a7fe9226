#pragma once

#include "foundation/Descriptor.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation {

enum class LogLevel { debug, info, warning, error, fault };

/// The extension's bundle identifier, under which every line of the system is logged.
inline constexpr const char* bundleIdentifier = "com.kemvi.fs.extension";

/// One piece of a log line: fixed text, or a value with its privacy.
struct LogPiece {
    enum class Privacy { fixedText, publicValue, privateValue };
    Privacy privacy = Privacy::fixedText;
    std::string text;

    LogPiece(const char* fixed) : text(fixed) {}
};

/// A value that is always shown.
LogPiece logPublic(std::string_view value);
/// A value of default privacy: shown as "<private>" unless private values were asked for (Log::showPrivateValues), or
/// the log shows them to whoever may see them (os_log on macOS).
LogPiece logPrivate(std::string_view value);

/// A part of a finished line, with control characters escaped.
struct LogSegment {
    bool isPrivate = false;
    std::string text;
};

/// Where finished lines go. Called from any thread, one call at a time.
class LogSink {
public:
    virtual ~LogSink();
    virtual void write(LogLevel level, std::string_view subsystem, std::string_view category,
                       std::string_view line) = 0;

    /// The same line, with its private values still apart: for a log that decides itself who is shown them. Public and
    /// private segments alternate, beginning with a public one, which may be empty. Unless it is overridden, this
    /// writes each private one as "<private>".
    virtual void writeSegments(LogLevel level, std::string_view subsystem, std::string_view category,
                               const std::vector<LogSegment>& segments);
};

/// Process-wide settings of logging. Thread-safe.
namespace Log {
/// Replaces the sink; nullptr restores the platform's default (os_log on macOS, standard error on Linux).
void setSink(std::shared_ptr<LogSink> sink);
/// Whether values of default privacy are written out; off at start.
void showPrivateValues(bool show);
/// The least level that is written; info at start.
void setLevel(LogLevel level);
/// Whether lines of this level are written: spares the making of those that are not.
bool isWritten(LogLevel level);
} // namespace Log

// Each sink writes "category: line", with "subject: " before it where a subject is given: what the lines are about,
// such as the path of a mount. Those that go to people or files have the time in front.

/// Standard error.
std::shared_ptr<LogSink> makeStderrLogSink();
/// A descriptor, which the sink takes over.
std::shared_ptr<LogSink> makeDescriptorLogSink(Descriptor descriptor, std::string subject);
/// A file, to whose end lines are written; made if it does not exist (mode 0640). One that was moved away or removed is
/// made anew for the next line, so that a rotation needs nobody to tell. Throws NSErrorException with the POSIX error.
std::shared_ptr<LogSink> makeFileLogSink(std::string path, std::string subject);
/// The system's log: os_log on macOS, which is told what is private; syslog (which the journal collects) on Linux,
/// under the given identity.
std::shared_ptr<LogSink> makeSystemLogSink(const std::string& identity, std::string subject = {});
/// Whether there is a system's log that takes lines.
bool hasSystemLog();

/// Writes lines under one subsystem and category. Immutable, cheap to copy, safe on any thread.
class Logger {
public:
    Logger(std::string subsystem, std::string category)
        : subsystem_(std::move(subsystem)), category_(std::move(category)) {}

    /// One line, whatever is in the pieces: control characters are written escaped.
    void log(LogLevel level, const std::vector<LogPiece>& pieces) const;

    void debug(const std::vector<LogPiece>& pieces) const { log(LogLevel::debug, pieces); }

    void info(const std::vector<LogPiece>& pieces) const { log(LogLevel::info, pieces); }

    void warning(const std::vector<LogPiece>& pieces) const { log(LogLevel::warning, pieces); }

    void error(const std::vector<LogPiece>& pieces) const { log(LogLevel::error, pieces); }

private:
    std::string subsystem_;
    std::string category_;
};

/// Logs the reason at fault level and aborts the process. Every condition that is fatal by design ends here.
[[noreturn]] void fatalError(std::string_view reason);

} // namespace foundation
