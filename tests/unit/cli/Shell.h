#pragma once

#include "foundation/ChildProcess.h"
#include "foundation/Pipe.h"

#include <csignal>
#include <memory>
#include <string>
#include <sys/types.h>

namespace clitests {

/// A shell script that runs as a child. It is killed, with what it has started, when the object goes.
class Shell {
public:
    explicit Shell(const std::string& text) : child(std::make_shared<foundation::ChildProcess>()) {
        child->launch({"/bin/sh",
                       {"-c", text},
                       {{"PATH", "/usr/bin:/bin"}},
                       input.fileHandleForReading().fileDescriptor(),
                       output.fileHandleForWriting().fileDescriptor()});
        input.fileHandleForReading().close();
        output.fileHandleForWriting().close();
    }

    ~Shell() {
        if (child->isRunning())
            ::kill(-child->processIdentifier(), SIGKILL);
        child->waitUntilExit();
    }

    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    pid_t pid() const { return child->processIdentifier(); }

    std::string line() {
        foundation::ByteBuffer text;
        return output.fileHandleForReading().readLine(text) ? std::string(text.view()) : "<end>";
    }

    /// Says that it may go on, or end.
    void endInput() { input.fileHandleForWriting().close(); }

    foundation::Pipe input;
    foundation::Pipe output;
    const std::shared_ptr<foundation::ChildProcess> child;
};

} // namespace clitests
