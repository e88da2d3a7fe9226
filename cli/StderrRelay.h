#pragma once

#include <future>
#include <string>
#include <thread>

namespace cli {

/// Stands between what this process and its helper write to standard error and where that goes: to the terminal while
/// the mount is being made, to the system's log from then on. So neither process holds on to the terminal, or to the
/// pipe of a script that waits for the command's output to end.
class StderrRelay {
public:
    /// Puts a pipe in the place of descriptor 2 and starts the thread that reads it. Throws CommandError.
    StderrRelay();
    /// Passes on what has been written so far and ends the thread. What is written later is lost.
    ~StderrRelay();
    StderrRelay(const StderrRelay&) = delete;
    StderrRelay& operator=(const StderrRelay&) = delete;

    /// Passes everything written so far to the terminal, lets go of it, and sends what follows to the log. Returns when
    /// that is done.
    void switchToLog();

private:
    enum class Command : char { switchToLog, finish };

    void run();
    /// Reads what is there. False at the end of the stream.
    bool forwardAvailable();
    void forward(std::string_view bytes);
    void logLines(bool includingUnfinished);
    void obey(Command command);

    int terminal_ = -1; // the original standard error; -1 once let go
    int readEnd_ = -1;
    int commandRead_ = -1;
    int commandWrite_ = -1;
    std::string unfinished_; // the start of a log line whose end has not come yet
    std::promise<void> switched_;
    bool finished_ = false; // the relay thread's own
    std::thread thread_;
};

} // namespace cli
