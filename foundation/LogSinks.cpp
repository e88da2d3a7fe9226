#include "foundation/Descriptor.h"
#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __APPLE__
#include <os/log.h>
#else
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/syslog_sink.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#endif

namespace foundation {
namespace {

std::string textOf(std::string_view subject, std::string_view category, std::string_view line) {
    std::string text(subject);
    if (!subject.empty())
        text.append(": ");
    return text.append(category).append(": ").append(line);
}

#ifdef __APPLE__

std::string stamped(LogLevel, std::string_view text) {
    return std::string(text) + "\n";
}

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
    case LogLevel::warning: return spdlog::level::warn;
    case LogLevel::error: return spdlog::level::err;
    case LogLevel::fault: return spdlog::level::critical;
    }
    return spdlog::level::info;
}

std::string stamped(LogLevel level, std::string_view text) {
    // Lines come one at a time. Never destroyed: some come while the process ends.
    static auto* const formatter = new spdlog::pattern_formatter("%Y-%m-%d %H:%M:%S.%e kemvi: %v");
    spdlog::memory_buf_t line;
    formatter->format(spdlog::details::log_msg("kemvi", spdlogLevel(level), text), line);
    return {line.data(), line.size()};
}

class SystemSink final : public LogSink {
public:
    SystemSink(const std::string& identity, std::string subject)
        : sink_(identity, LOG_PID, LOG_DAEMON, true), subject_(std::move(subject)) {
        sink_.set_level(spdlog::level::trace);
        sink_.set_pattern("%v");
    }

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        sink_.log(spdlog::details::log_msg("kemvi", spdlogLevel(level), textOf(subject_, category, line)));
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

#endif

// One call for the whole line, so that lines of several processes do not mix. What cannot be written is lost: there is
// nobody else to tell.
void writeLine(int descriptor, const std::string& line) {
    ssize_t written = 0;
    do
        written = ::write(descriptor, line.data(), line.size());
    while (written < 0 && errno == EINTR);
}

class StderrSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        writeLine(STDERR_FILENO, stamped(level, textOf("", category, line)));
    }
};

class DescriptorSink final : public LogSink {
public:
    DescriptorSink(Descriptor descriptor, std::string subject)
        : descriptor_(std::move(descriptor)), subject_(std::move(subject)) {}

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        writeLine(descriptor_.number(), stamped(level, textOf(subject_, category, line)));
    }

private:
    const Descriptor descriptor_;
    const std::string subject_;
};

class FileSink final : public LogSink {
public:
    FileSink(std::string path, std::string subject)
        : path_(std::move(path)), subject_(std::move(subject)), descriptor_(openFile()) {
        if (!descriptor_.isOpen())
            throwPosix(darwinErrno(errno));
    }

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        reopenIfMoved();
        writeLine(descriptor_.number(), stamped(level, textOf(subject_, category, line)));
    }

private:
    Descriptor openFile() const {
        constexpr mode_t mode = 0640; // paths may be in it
        return Descriptor(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, mode));
    }

    void reopenIfMoved() {
        struct stat named {};

        struct stat held {};

        if (::stat(path_.c_str(), &named) == 0 && ::fstat(descriptor_.number(), &held) == 0 &&
            named.st_ino == held.st_ino && named.st_dev == held.st_dev)
            return;
        if (Descriptor fresh = openFile(); fresh.isOpen())
            descriptor_ = std::move(fresh);
    }

    const std::string path_;
    const std::string subject_;
    Descriptor descriptor_;
};

} // namespace

std::shared_ptr<LogSink> makeStderrLogSink() {
    return std::make_shared<StderrSink>();
}

std::shared_ptr<LogSink> makeDescriptorLogSink(Descriptor descriptor, std::string subject) {
    return std::make_shared<DescriptorSink>(std::move(descriptor), std::move(subject));
}

std::shared_ptr<LogSink> makeFileLogSink(std::string path, std::string subject) {
    return std::make_shared<FileSink>(std::move(path), std::move(subject));
}

#ifdef __APPLE__

std::shared_ptr<LogSink> makeSystemLogSink(const std::string&, std::string) {
    return std::make_shared<SystemSink>();
}

bool hasSystemLog() {
    return true;
}

#else

std::shared_ptr<LogSink> makeSystemLogSink(const std::string& identity, std::string subject) {
    return std::make_shared<SystemSink>(identity, std::move(subject));
}

bool hasSystemLog() {
    return canReachLog(SOCK_DGRAM) || canReachLog(SOCK_STREAM);
}

#endif

} // namespace foundation
