#include "foundation/PlatformLog.h"

#include <os/log.h>

namespace foundation {
namespace {

os_log_type_t osLogType(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return OS_LOG_TYPE_DEBUG;
    case LogLevel::info: return OS_LOG_TYPE_INFO;
    case LogLevel::warning: return OS_LOG_TYPE_DEFAULT;
    case LogLevel::error: return OS_LOG_TYPE_ERROR;
    case LogLevel::fault: return OS_LOG_TYPE_FAULT;
    }
    return OS_LOG_TYPE_DEFAULT;
}

// As many as there is a format for. What goes beyond that becomes part of the last private one.
constexpr std::size_t mostSegments = 5;

std::vector<std::string> textsOf(const std::vector<LogSegment>& segments) {
    std::vector<std::string> texts;
    for (const LogSegment& segment : segments) {
        if (segments.size() > mostSegments && texts.size() == mostSegments - 1)
            texts.back() += segment.text;
        else
            texts.push_back(segment.text);
    }
    return texts;
}

// The system keeps the formats of a program apart from what they are given, so each has to be a constant.
void hand(os_log_t log, os_log_type_t type, const std::vector<std::string>& parts) {
    const auto text = [&](std::size_t number) { return parts[number].c_str(); };
    switch (parts.size()) {
    case 1: os_log_with_type(log, type, "%{public}s", text(0)); break;
    case 2: os_log_with_type(log, type, "%{public}s%{private}s", text(0), text(1)); break;
    case 3: os_log_with_type(log, type, "%{public}s%{private}s%{public}s", text(0), text(1), text(2)); break;
    case 4:
        os_log_with_type(log, type, "%{public}s%{private}s%{public}s%{private}s", text(0), text(1), text(2), text(3));
        break;
    default:
        os_log_with_type(log, type, "%{public}s%{private}s%{public}s%{private}s%{public}s", text(0), text(1), text(2),
                         text(3), text(4));
    }
}

// The system hides private values itself, from whoever may not see them.
class SystemSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view line) override {
        writeSegments(level, subsystem, category, {{false, std::string(line)}});
    }

    void writeSegments(LogLevel level, std::string_view subsystem, std::string_view category,
                       const std::vector<LogSegment>& segments) override {
        os_log_t log = os_log_create(std::string(subsystem).c_str(), std::string(category).c_str());
        hand(log, osLogType(level), textsOf(segments));
    }
};

} // namespace

std::shared_ptr<LogSink> makeDefaultLogSink() {
    return makeSystemLogSink("kemvi");
}

std::string stampedLine(LogLevel, std::string_view text) {
    return std::string(text) + "\n";
}

std::shared_ptr<LogSink> makeSystemLogSink(const std::string&, std::string) {
    return std::make_shared<SystemSink>();
}

bool hasSystemLog() {
    return true;
}

} // namespace foundation
