#include "foundation/Descriptor.h"
#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PlatformLog.h"
#include "foundation/PosixErrno.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation {
namespace {

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
        writeLine(STDERR_FILENO, stampedLine(level, labelledLine("", category, line)));
    }
};

class DescriptorSink final : public LogSink {
public:
    DescriptorSink(Descriptor descriptor, std::string subject)
        : descriptor_(std::move(descriptor)), subject_(std::move(subject)) {}

    void write(LogLevel level, std::string_view, std::string_view category, std::string_view line) override {
        writeLine(descriptor_.number(), stampedLine(level, labelledLine(subject_, category, line)));
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
        writeLine(descriptor_.number(), stampedLine(level, labelledLine(subject_, category, line)));
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

std::string labelledLine(std::string_view subject, std::string_view category, std::string_view line) {
    std::string text(subject);
    if (!subject.empty())
        text.append(": ");
    return text.append(category).append(": ").append(line);
}

std::shared_ptr<LogSink> makeStderrLogSink() {
    return std::make_shared<StderrSink>();
}

std::shared_ptr<LogSink> makeDescriptorLogSink(Descriptor descriptor, std::string subject) {
    return std::make_shared<DescriptorSink>(std::move(descriptor), std::move(subject));
}

std::shared_ptr<LogSink> makeFileLogSink(std::string path, std::string subject) {
    return std::make_shared<FileSink>(std::move(path), std::move(subject));
}

} // namespace foundation
