#include "cli/StderrRelay.h"

#include "cli/CommandError.h"
#include "foundation/StandardErrorPipe.h"
#include "hosts/fuse/calls/Quietly.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t longestLogLine = 4096; // bytes; a line that grows longer is logged in pieces

[[noreturn]] void refuse() {
    throw CommandError(ExitCode::failure, "standard error", "cannot be relayed: " + errnoText(errno));
}

foundation::PipeEnds makePipe() {
    auto ends = foundation::openPipe();
    if (!ends.reading.isOpen())
        refuse();
    return ends;
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

StderrRelay::StderrRelay() : terminal_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)), log_(longestLogLine) {
    commands_ = makePipe();
    readEnd_ = foundation::pipeAsStandardError();
    if (!readEnd_.isOpen())
        refuse();
    ::fcntl(readEnd_.number(), F_SETFL, O_NONBLOCK);
    thread_ = std::thread([this] { run(); });
}

StderrRelay::~StderrRelay() {
    send(Command::finish);
    thread_.join();
    if (terminal_.isOpen()) {
        ::dup2(terminal_.number(), STDERR_FILENO);
        sendMessagesToStandardError();
    }
}

void StderrRelay::send(Command command) {
    writeAll(commands_.writing.number(), {reinterpret_cast<const char*>(&command), 1});
}

void StderrRelay::switchToLog() {
    send(Command::switchToLog);
    switched_.get_future().wait();
    sendMessagesToLog();
}

void StderrRelay::switchToLogAlone() {
    send(Command::switchToLogAlone);
    switched_.get_future().wait();
    sendMessagesToLog();
}

foundation::Descriptor StderrRelay::duplicateOfTerminal() const {
    return foundation::Descriptor(::fcntl(terminal_.number(), F_DUPFD_CLOEXEC, 3));
}

void StderrRelay::run() {
    std::array<pollfd, 2> sources{pollfd{readEnd_.number(), POLLIN, 0}, pollfd{commands_.reading.number(), POLLIN, 0}};
    while (!finished_) {
        if (::poll(sources.data(), sources.size(), -1) < 0)
            continue;
        fusehost::quietly("passing on what the helper says", [&] {
            if (sources[0].revents != 0 && !forwardAvailable())
                sources[0].fd = -1;
            Command command{};
            if (sources[1].revents != 0 && ::read(commands_.reading.number(), &command, 1) == 1)
                obey(command);
        });
    }
}

void StderrRelay::obey(Command command) {
    finished_ = command == Command::finish; // whatever becomes of the last words
    forwardAvailable();
    if (finished_) {
        log_.finish();
        return;
    }
    if (command == Command::switchToLogAlone)
        terminal_.reset();
    toLog_ = true;
    switched_.set_value();
}

bool StderrRelay::forwardAvailable() {
    std::array<char, 16384> bytes{};
    for (;;) {
        const auto count = ::read(readEnd_.number(), bytes.data(), bytes.size());
        if (count > 0)
            forward({bytes.data(), static_cast<std::size_t>(count)});
        else if (count == 0 || errno != EINTR)
            return count < 0;
    }
}

void StderrRelay::forward(std::string_view bytes) {
    if (!toLog_) {
        writeAll(terminal_.number(), bytes);
        return;
    }
    log_.take(bytes);
}

} // namespace cli
