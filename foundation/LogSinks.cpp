#include "foundation/Log.h"

#ifdef __APPLE__
#include <os/log.h>
#include <unistd.h>
#else
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>
#endif

namespace foundation {
namespace {

#ifdef __APPLE__

class StderrSink final : public LogSink {
public:
    void write(LogLevel, std::string_view, std::string_view category, std::string_view line) override {
        std::string text(category);
        text.append(": ").append(line).append("\n");
        (void)!::write(STDERR_FILENO, text.data(), text.size());
    }
};

os_log_type_t osLogType(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return OS_LOG_TYPE_DEBUG;
    case LogLevel::info: return OS_LOG_TYPE_INFO;
    case LogLevel::error: return OS_LOG_TYPE_ERROR;
    case LogLevel::fault: return OS_LOG_TYPE_FAULT;
    }
    return OS_LOG_TYPE_DEFAULT;
}

// Privacy has been settled when the line arrives here, so the whole line is public.
class SystemSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view line) override {
        os_log_t log = os_log_create(std::string(subsystem).c_str(), std::string(category).c_str());
        os_log_with_type(log, osLogType(level), "%{public}s", std::string(line).c_str());
    }
};

#else

spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return spdlog::level::debug;
    case LogLevel::info: return spdlog::level::info;
    case LogLevel::error: return spdlog::level::err;
    case LogLevel::fault: return spdlog::level::critical;
    }
    return spdlog::level::info;
}

class SpdlogSink final : public LogSink {
public:
    explicit SpdlogSink(std::shared_ptr<spdlog::sinks::sink> sink) : sink_(std::move(sink)) {
        sink_->set_level(spdlog::level::trace);
    }

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        std::string text(category);
        text.append(": ").append(line);
        sink_->log(spdlog::details::log_msg("kemvi", spdlogLevel(level), text));
        sink_->flush();
    }

private:
    std::shared_ptr<spdlog::sinks::sink> sink_;
};

#endif

} // namespace

#ifdef __APPLE__

std::shared_ptr<LogSink> makeStderrLogSink() {
    return std::make_shared<StderrSink>();
}

std::shared_ptr<LogSink> makeSystemLogSink(const std::string&) {
    return std::make_shared<SystemSink>();
}

#else

std::shared_ptr<LogSink> makeStderrLogSink() {
    auto sink = std::make_shared<spdlog::sinks::stderr_sink_st>();
    sink->set_pattern("kemvi: %v");
    return std::make_shared<SpdlogSink>(std::move(sink));
}

std::shared_ptr<LogSink> makeSystemLogSink(const std::string& identity) {
    auto sink = std::make_shared<spdlog::sinks::syslog_sink_st>(identity, LOG_PID, LOG_DAEMON, true);
    sink->set_pattern("%v");
    return std::make_shared<SpdlogSink>(std::move(sink));
}

#endif

} // namespace foundation
