#pragma once

#include "cli/ExitCode.h"
#include "cli/HelperProcesses.h"
#include "cli/RestartLimit.h"
#include "hosts/fuse/Supervision.h"
#include "hosts/fuse/VolumeRenewal.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace fusehost {
class FuseHost;
}

namespace cli {

/// Decides what becomes of a mount whose helper has ended: what the options say, with a pause before each new start and
/// an end to them. Also has a helper started anew that is well, when somebody asks. Tells the log of all of it.
///
/// It needs somebody who watches helpers and clocks for it (SupervisorThread). Thread-safe.
class Supervisor final : public fusehost::Supervision {
public:
    using Clock = std::chrono::steady_clock;
    /// Told what came of a restart that was asked for: empty, or why there was none.
    using Outcome = std::function<void(const std::string& problem)>;

    /// Whether somebody asks for another helper whenever its files change. Then a start that fails waits for the next
    /// change instead of ending the mount, and so do too many failures in a row.
    enum class Files { notWatched, watched };

    /// All must outlive this object.
    Supervisor(HelperProcesses& helpers, const fusehost::MountOptions& options, Files files = Files::notWatched);

    /// From here on this is the host whose helpers are looked after; null: there is none. No call of the host is under
    /// way from here when this returns.
    void use(fusehost::FuseHost* host);

    /// Starts the helper anew. What is under way may still be finished, for some seconds. `outcome` is called once, on
    /// any thread, and must return soon.
    void restart(fusehost::KernelCaches caches, Outcome outcome);

    /// The same, since its files have changed: `change` says which, for the log, as in "tree.mjs changed". Nothing
    /// while no host is in use.
    void restartAfter(const std::string& change);

    /// Whether the helper answers no more, or its process is gone.
    bool isHelperGone() const noexcept { return hasEnded(); }

    /// What shows that the helper, which lives, is not to be believed any more: since when its answers are out of step.
    /// Empty if nothing does.
    std::string breach() const;

    /// A process that was the helper is gone.
    void helperGone();

    /// When the helper is to be killed, if it has not ended by then or moved on; asked by who watches the clock.
    std::optional<Clock::time_point> deadline() const;
    void deadlinePassed();
    /// The helper has owed an answer for so long, which is longer than it may.
    void endLateHelper(std::chrono::milliseconds limit);

    /// What the command ends with where the helper's end was the mount's.
    std::optional<ExitCode> verdict() const;

    /// Whether one is being started anew right now.
    bool isRestarting() const { return isRestarting_; }

    bool isEnd(const foundation::ErrorOrigin& origin) noexcept override;
    bool hasEnded() const noexcept override;
    void leaving() noexcept override;
    bool settle() noexcept override;
    std::optional<std::chrono::milliseconds> pause() noexcept override;
    void loadFailed(const foundation::NSError& error) noexcept override;
    void renewed() noexcept override;
    void gaveUp() noexcept override;
    void failedAtLast() noexcept override;

private:
    /// Why the helper is started anew, and since when that is wanted.
    struct Change {
        std::string text;
        Clock::time_point seen;
    };

    bool isOutOfStep() const;
    /// What is known of that, which is forgotten; empty if it is not so.
    std::string takeBreach();
    void takeReason();
    /// The beginning of what is told of one.
    std::string failedStart() const;
    void restartWithLock(fusehost::KernelCaches caches);
    bool waitsForChange() const;
    void setDeadline(std::optional<Clock::time_point> deadline);
    void finish(const std::string& problem) noexcept;

    HelperProcesses& helpers_;
    const fusehost::MountOptions& options_;
    const Files files_;
    std::atomic<bool> isRestarting_{false};
    std::string lastProblem_; // of a failed start, or how the helper ended; the serving thread's own
    bool isLeaving_ = false;  // the same, as are the next
    bool startFailed_ = false;
    std::optional<Change> reason_; // for which it is started anew at present

    mutable std::mutex lock_; // guards what follows
    fusehost::FuseHost* host_ = nullptr;
    RestartLimit limit_;
    std::optional<Clock::time_point> deadline_;
    std::optional<ExitCode> verdict_;
    std::vector<Outcome> outcomes_; // of those who asked
    std::string breach_;            // of the helper that serves, whose answers are out of step; empty: they are not
    std::optional<Change> change_;  // for which it is to be started anew
};

} // namespace cli
