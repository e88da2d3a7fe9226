#include "cli/StderrRelay.h"

#include "cli/CommandError.h"
#include "foundation/Log.h"
#include "hosts/fuse/calls/Quietly.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t longestLogLine = 4096; // bytes; a line that grows longer is logged in pieces

const foundation::Logger& helperLog() {
    static const foundation::Logger logger("kemvi", "Helper");
    return logger;
}

struct PipeEnds {
    int read;
    int write;
};

PipeEnds makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw CommandError(ExitCode::failure, "standard error", "cannot be relayed: " + errnoText(errno));
    return {ends[0], ends[1]};
}

void writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace

StderrRelay::StderrRelay() : lines_(longestLogLine) {
    terminal_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const auto stream = makePipe();
    const auto commands = makePipe();
    readEnd_ = stream.read;
    commandRead_ = commands.read;
    commandWrite_ = commands.write;
    ::fcntl(readEnd_, F_SETFL, O_NONBLOCK);
    ::dup2(stream.write, STDERR_FILENO); // without close-on-exec: the helper inherits it
    ::close(stream.write);
    thread_ = std::thread([this] { run(); });
}

StderrRelay::~StderrRelay() {
    send(Command::finish);
    thread_.join();
    if (terminal_ >= 0) {
        ::dup2(terminal_, STDERR_FILENO);
        sendMessagesToLog(false);
    }
    for (const int descriptor : {terminal_, readEnd_, commandRead_, commandWrite_})
        if (descriptor >= 0)
            ::close(descriptor);
}

void StderrRelay::send(Command command) {
    writeAll(commandWrite_, {reinterpret_cast<const char*>(&command), 1});
}

void StderrRelay::switchToLog() {
    send(Command::switchToLog);
    switched_.get_future().wait();
    sendMessagesToLog(true);
}

void StderrRelay::switchToLogAlone() {
    send(Command::switchToLogAlone);
    switched_.get_future().wait();
    sendMessagesToLog(true);
}

int StderrRelay::duplicateOfTerminal() const {
    return ::fcntl(terminal_, F_DUPFD_CLOEXEC, 3);
}

void StderrRelay::run() {
    std::array<pollfd, 2> sources{pollfd{readEnd_, POLLIN, 0}, pollfd{commandRead_, POLLIN, 0}};
    while (!finished_) {
        if (::poll(sources.data(), sources.size(), -1) < 0)
            continue;
        fusehost::quietly("passing on what the helper says", [&] {
            if (sources[0].revents != 0 && !forwardAvailable())
                sources[0].fd = -1;
            Command command{};
            if (sources[1].revents != 0 && ::read(commandRead_, &command, 1) == 1)
                obey(command);
        });
    }
}

void StderrRelay::obey(Command command) {
    finished_ = command == Command::finish; // whatever becomes of the last words
    forwardAvailable();
    if (finished_) {
        if (const auto last = lines_.rest())
            log(*last);
        return;
    }
    if (command == Command::switchToLogAlone) {
        ::close(terminal_);
        terminal_ = -1;
    }
    toLog_ = true;
    switched_.set_value();
}

bool StderrRelay::forwardAvailable() {
    std::array<char, 16384> bytes{};
    for (;;) {
        const auto count = ::read(readEnd_, bytes.data(), bytes.size());
        if (count > 0)
            forward({bytes.data(), static_cast<std::size_t>(count)});
        else if (count == 0 || errno != EINTR)
            return count < 0;
    }
}

void StderrRelay::forward(std::string_view bytes) {
    if (!toLog_) {
        writeAll(terminal_, bytes);
        return;
    }
    for (const std::string& line : lines_.take(bytes))
        log(line);
}

void StderrRelay::log(const std::string& line) {
    helperLog().warning({foundation::logPublic(line)});
}

} // namespace cli
