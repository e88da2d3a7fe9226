#include "foundation/Descriptor.h"
#include "foundation/PlatformLog.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/syslog_sink.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

namespace foundation {
namespace {

spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return spdlog::level::debug;
    case LogLevel::info: return spdlog::level::info;
    case LogLevel::warning: return spdlog::level::warn;
    case LogLevel::error: return spdlog::level::err;
    case LogLevel::fault: return spdlog::level::critical;
    }
    return spdlog::level::info;
}

class SystemSink final : public LogSink {
public:
    SystemSink(const std::string& identity, std::string subject)
        : sink_(identity, LOG_PID, LOG_DAEMON, true), subject_(std::move(subject)) {
        sink_.set_level(spdlog::level::trace);
        sink_.set_pattern("%v");
    }

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        sink_.log(spdlog::details::log_msg("kemvi", spdlogLevel(level), labelledLine(subject_, category, line)));
    }

private:
    spdlog::sinks::syslog_sink_st sink_;
    const std::string subject_;
};

// Whether a log takes lines at /dev/log, which is where they are sent.
bool canReachLog(int type) {
    const Descriptor log(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (!log.isOpen())
        return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr std::string_view path = "/dev/log";
    path.copy(address.sun_path, path.size());
    return ::connect(log.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

} // namespace

std::shared_ptr<LogSink> makeDefaultLogSink() {
    return makeStderrLogSink();
}

std::string stampedLine(LogLevel level, std::string_view text) {
    // Never destroyed: some lines come while the process ends.
    static auto* const formatter = new spdlog::pattern_formatter("%Y-%m-%d %H:%M:%S.%e kemvi: %v");
    spdlog::memory_buf_t line;
    formatter->format(spdlog::details::log_msg("kemvi", spdlogLevel(level), text), line);
    return {line.data(), line.size()};
}

std::shared_ptr<LogSink> makeSystemLogSink(const std::string& identity, std::string subject) {
    return std::make_shared<SystemSink>(identity, std::move(subject));
}

bool hasSystemLog() {
    return canReachLog(SOCK_DGRAM) || canReachLog(SOCK_STREAM);
}

} // namespace foundation
