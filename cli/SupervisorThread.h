#pragma once

#include "cli/ExchangeMeter.h"
#include "cli/HelperProcesses.h"
#include "cli/Supervisor.h"
#include "cli/WaitWarnings.h"
#include "hosts/fuse/FuseHost.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

namespace cli {

/// Watches over a mount's helpers for their supervisor, while it lives: sees at once when one has gone, and kills one
/// whose time is over.
/// Also tells the log of requests that wait long.
class SupervisorThread {
public:
    /// All must outlive the thread.
    struct Watched {
        Supervisor& supervisor;
        HelperProcesses& helpers;
        const ExchangeMeter& exchanges;
        fusehost::FuseHost& host;
    };

    /// To be made when the host has loaded. Throws std::system_error if the process can have no more threads.
    SupervisorThread(Watched watched, const fusehost::MountOptions& options);
    ~SupervisorThread();
    SupervisorThread(const SupervisorThread&) = delete;
    SupervisorThread& operator=(const SupervisorThread&) = delete;

private:
    void run();
    void wait();
    void look();
    void endLateHelper(Supervisor::Clock::time_point now);
    void warn(Supervisor::Clock::time_point now);
    /// How long to sleep at most.
    std::chrono::milliseconds round();
    bool isIdle();

    const Watched on_;
    const std::optional<std::chrono::milliseconds> longestExchange_;
    WaitWarnings warnings_;
    std::uint64_t requests_ = 0; // that there had been at the last look
    fusehost::EventDescriptor end_;
    bool isEnding_ = false;
    Supervisor::Clock::time_point ended_;      // when the exchange began that a helper was killed for
    std::weak_ptr<const HeldProcess> watched_; // has been seen to be gone; weak, as its descriptor is to go with it
    std::thread thread_;
};

} // namespace cli
