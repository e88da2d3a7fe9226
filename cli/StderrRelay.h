#pragma once

#include "foundation/Descriptor.h"
#include "helper/HelperLog.h"

#include <future>
#include <string_view>
#include <thread>

namespace cli {

/// Stands between what this process and its helper write to standard error and where that goes: as it is to the
/// terminal while the mount is being made, from then on to the log, where each line is marked as the helper's. So in
/// the background neither process holds on to the terminal, or to the pipe of a script that waits for the command's
/// output to end.
class StderrRelay {
public:
    /// Puts a pipe in the place of descriptor 2 and starts the thread that reads it. Throws CommandError.
    StderrRelay();
    /// Passes on what has been written so far and ends the thread. Standard error is again what it was, or, once that
    /// was let go, leads nowhere.
    ~StderrRelay();
    StderrRelay(const StderrRelay&) = delete;
    StderrRelay& operator=(const StderrRelay&) = delete;

    /// Passes everything written so far to the terminal and sends what follows, messages of this process too, to the
    /// log. Returns when that is done.
    void switchToLog();

    /// The same, and lets go of the terminal.
    void switchToLogAlone();

    /// The original standard error once more; owns nothing if the process can have no more descriptors.
    foundation::Descriptor duplicateOfTerminal() const;

private:
    enum class Command : char { switchToLog, switchToLogAlone, finish };

    void send(Command command);

    void run();
    /// Reads what is there. False at the end of the stream.
    bool forwardAvailable();
    void forward(std::string_view bytes);
    void obey(Command command);

    foundation::Descriptor terminal_; // the original standard error, until it is let go
    bool toLog_ = false;              // the relay thread's own
    foundation::Descriptor readEnd_;
    foundation::PipeEnds commands_;
    kemvi::HelperLog log_; // the relay thread's own
    std::promise<void> switched_;
    bool finished_ = false; // the relay thread's own
    std::thread thread_;
};

} // namespace cli
