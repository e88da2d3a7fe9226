#pragma once

#include "cli/HelperProcesses.h"
#include "foundation/Descriptor.h"
#include "hosts/fuse/FuseHost.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

namespace cli {

/// Ends a mount when a signal asks for it, and says what the end waits for. Runs a thread of its own that takes SIGINT,
/// SIGTERM and SIGHUP, which must be blocked in every thread.
///
/// The first signal asks for an orderly end: what programs have changed is written, what is open is given back and the
/// helper may finish. Writing that takes long is told, and given up at a limit; a helper that does not end is named
/// after a few seconds. A second signal, or the first one after the helper was named, kills the helper.
class StopControl {
public:
    /// Where the mount stands in its life; goes forward only.
    enum class Phase { starting, serving, writing, ending, ended };

    /// All arguments must outlive this object.
    StopControl(fusehost::FuseHost& host, const HelperProcesses& helpers, const std::string& mountPoint);
    ~StopControl();
    StopControl(const StopControl&) = delete;
    StopControl& operator=(const StopControl&) = delete;

    void enter(Phase phase);

    /// Any thread.
    Phase phase() const { return phase_; }

    /// A signal came before the mount was served.
    bool interrupted() const { return interrupted_; }

    /// The helper was killed since it did not end.
    bool gaveUp() const { return gaveUp_; }

    /// The mount was ended before everything was written that programs had changed.
    bool lostChanges() const { return lostChanges_; }

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void wait();
    void onPhase();
    void onSignal();
    void onDeadline();
    void onSlowWriting();
    std::string helperName() const;
    void tell(const std::string& what) const;

    fusehost::FuseHost& host_;
    const HelperProcesses& helpers_;
    const std::string& mountPoint_;
    std::atomic<Phase> phase_{Phase::starting};
    std::atomic<bool> interrupted_{false};
    std::atomic<bool> gaveUp_{false};
    std::atomic<bool> lostChanges_{false};
    foundation::Descriptor signals_;
    foundation::Descriptor phaseChanged_;

    // The thread's own.
    std::optional<Clock::time_point> deadline_;
    Clock::time_point writingEnds_; // when writing is given up
    bool stopRequested_ = false;
    bool named_ = false; // the user knows which process is waited for

    std::thread thread_;
};

} // namespace cli
