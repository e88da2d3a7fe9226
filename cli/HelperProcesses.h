#pragma once

#include "cli/DeathWatch.h"
#include "cli/HeldProcess.h"
#include "foundation/ExitStatus.h"
#include "helper/HelperObserver.h"
#include "hosts/fuse/placement/Companion.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli {

/// The helpers of a mount, as it is told of them; the last one started is the one that serves. Thread-safe.
class HelperProcesses final : public kemvi::HelperObserver {
public:
    /// Each helper is handed to the watch, which must outlive this object, the moment it has started.
    /// `companion`, if any, is told which one serves.
    explicit HelperProcesses(DeathWatch& watch, fusehost::Companion* companion = nullptr)
        : watch_(watch), companion_(companion) {}

    /// Ends every helper there still is, after their input was closed: a moment to go by themselves, SIGTERM, SIGKILL.
    /// Leaves no process and no zombie. Takes at most about a second and a half.
    ~HelperProcesses() override;
    HelperProcesses(const HelperProcesses&) = delete;
    HelperProcesses& operator=(const HelperProcesses&) = delete;

    void helperStarted(const std::shared_ptr<foundation::ChildProcess>& helper) noexcept override;
    void helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                     const std::string& lastRequest) noexcept override;

    /// The process number of the helper; nothing before one was started.
    std::optional<pid_t> pid() const;

    /// How many helpers were started after the first.
    std::uint64_t restarts() const;

    /// Kills the helpers, each with its whole process group. Does not wait.
    void kill() const;

    /// True if the helper answers no more.
    bool ended() const;

    /// How the helper ended; one that is about to is given a moment. Nothing if it still runs then, or was not started.
    std::optional<foundation::ExitStatus> exitStatus() const;

    /// The same as far as it is known already: waits for nothing.
    std::optional<foundation::ExitStatus> knownExitStatus() const;

    /// The state of a helper that answers no more, as a clause: how it ended, for which it is given a moment, or that
    /// it still runs. Empty for one that answers.
    std::string afterEndOfOutput() const;

private:
    struct Helper {
        std::shared_ptr<foundation::ChildProcess> child;
        HeldProcess held;
        bool ended = false; // guarded by mutex_
    };

    std::shared_ptr<const Helper> current() const;

    DeathWatch& watch_;
    fusehost::Companion* const companion_;
    mutable std::mutex mutex_; // guards what follows; never held while a helper is waited for
    std::vector<std::shared_ptr<Helper>> helpers_;
    std::uint64_t starts_ = 0;
};

} // namespace cli
