#pragma once

#include "foundation/ChildProcess.h"

#include <memory>
#include <string>

namespace kemvi {

/// Is told of the helpers that are started on its behalf: of each that it has started, and later, at most once, that it
/// has ended. Must be safe on any thread, return soon, throw nothing, and call nothing of the core.
class HelperObserver {
public:
    virtual ~HelperObserver() = default;

    /// A helper runs and has not been asked anything yet. Called by the thread that starts it.
    virtual void helperStarted(const std::shared_ptr<foundation::ChildProcess>& helper) noexcept = 0;

    /// The helper answers no more: its output has ended while it was asked for something, or it was stopped and has
    /// exited. In the first case it may be about to exit, or run on; its exit status is then told by the process as
    /// soon as it has one. `lastRequest` is the operation, "getattr", that met the end; empty if it was stopped.
    virtual void helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                             const std::string& lastRequest) noexcept = 0;
};

} // namespace kemvi
