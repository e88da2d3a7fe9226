#include "helper/HelperProcess.h"

#include "foundation/Error.h"

#include <unistd.h>
#include <utility>

namespace kemvi {

HelperProcess::HelperProcess(std::string helperPath, std::map<std::string, std::string> environment)
    : helperPath_(std::move(helperPath)), environment_(std::move(environment)),
      child_(std::make_shared<foundation::ChildProcess>()) {}

void HelperProcess::start() {
    start(STDERR_FILENO);
}

void HelperProcess::start(int standardError) {
    for (const foundation::Pipe* pipe : {&input_, &output_})
        if (pipe->creationError() != 0)
            foundation::throwPosix(pipe->creationError());
    foundation::ChildProcess::Options options;
    options.executable = "/usr/bin/env";
    options.arguments = {"node", helperPath_};
    options.environment = environment_;
    options.standardInput = input_.fileHandleForReading().fileDescriptor();
    options.standardOutput = output_.fileHandleForWriting().fileDescriptor();
    options.standardError = standardError;
    child_->launch(options);
    // The child has its own copies now. As long as ours are open, neither side would see the other go.
    input_.fileHandleForReading().close();
    output_.fileHandleForWriting().close();
}

void HelperProcess::stop() {
    input_.fileHandleForWriting().close();
    child_->waitUntilExit();
}

} // namespace kemvi
