#pragma once

#include "cli/DeathWatch.h"
#include "cli/HeldProcess.h"
#include "foundation/ExitStatus.h"
#include "helper/HelperObserver.h"
#include "hosts/fuse/placement/Companion.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
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

    /// The helper as it is held; null before one was started.
    std::shared_ptr<const HeldProcess> held() const;

    /// Readable when a helper has started since it was last cleared.
    const fusehost::EventDescriptor& started() const { return started_; }

    /// How a helper has ended.
    struct Ending {
        std::optional<foundation::ExitStatus> status; // nothing if it is not known
        std::string description;                      // a clause; empty if there was no helper
    };

    /// Ends the last helper if it still runs, with all of its process group, and waits for it without limit. Nobody
    /// must be about to start one.
    Ending endLast(Patience patience);

    /// Kills the helpers, each with its whole process group. Does not wait.
    void kill() const;

    /// True if the helper's process is there no more.
    bool isGone() const;

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
        Helper(std::shared_ptr<foundation::ChildProcess> itsChild, HeldProcess itsHeld)
            : child(std::move(itsChild)), held(std::move(itsHeld)) {}

        std::shared_ptr<foundation::ChildProcess> child;
        HeldProcess held;
        bool ended = false;      // guarded by mutex_, as is the next
        std::string lastRequest; // that met the end; empty if none did
    };

    std::shared_ptr<const Helper> current() const;

    DeathWatch& watch_;
    const fusehost::EventDescriptor started_;
    fusehost::Companion* const companion_;
    mutable std::mutex mutex_; // guards what follows; never held while a helper is waited for
    std::vector<std::shared_ptr<Helper>> helpers_;
    std::uint64_t starts_ = 0;
};

} // namespace cli
