#pragma once

#include "foundation/ChildProcess.h"
#include "foundation/Pipe.h"

#include <map>
#include <memory>
#include <string>

namespace kemvi {

/// One helper as a process: how it is started, the pipes at its standard input and output, how it goes. Knows nothing
/// of what is said over the pipes. It is never started again.
///
/// `start` is to be called once, before anything else but the pipes; the rest may be called on any thread.
class HelperProcess {
public:
    /// `environment` is the whole environment of the helper. Does nothing that can fail; a pipe that could not be made
    /// is reported by `start`.
    HelperProcess(std::string helperPath, std::map<std::string, std::string> environment);
    /// Closes the pipes. Neither waits for the helper nor signals it.
    ~HelperProcess() = default;
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    /// Launches "/usr/bin/env node <helperPath>" and leaves the helper alone at its ends of the pipes. Its standard
    /// error is that of this process. Throws the launch error. That `node` exists or the script runs is not checked.
    void start();
    /// The same with this descriptor as the helper's standard error.
    void start(int standardError);

    /// Closes the helper's standard input and waits, without a time limit, for the helper to exit. May be called again.
    void stop();

    /// The helper's standard input and output.
    foundation::Pipe& input() { return input_; }

    foundation::Pipe& output() { return output_; }

    /// The process as such: its number, and how it ended. It may be kept longer than this object.
    const std::shared_ptr<foundation::ChildProcess>& child() const { return child_; }

    const std::string& helperPath() const { return helperPath_; }

    const std::map<std::string, std::string>& environment() const { return environment_; }

private:
    const std::string helperPath_;
    const std::map<std::string, std::string> environment_;
    const std::shared_ptr<foundation::ChildProcess> child_;
    foundation::Pipe input_;
    foundation::Pipe output_;
};

} // namespace kemvi
