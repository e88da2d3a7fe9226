#pragma once

#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/kernel/KernelRequest.h"
#include "hosts/fuse/kernel/RequestDetails.h"
#include "hosts/fuse/monitor/Monitor.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace fusehost {

/// Tells the monitor of a mount what its loop executes. Used by the executing thread; `setWaiting` by whoever changes
/// the backlog.
class RequestReports {
public:
    using Clock = std::chrono::steady_clock;

    /// Both must live longer.
    RequestReports(KernelContext& context, Monitor& monitor) : context_(context), monitor_(monitor) {}

    /// A request is about to be executed, having been read at `since`.
    void begin(const KernelRequest& request, Clock::time_point since, Clock::time_point started) noexcept;
    /// The host does something of its own accord.
    void beginIdleWork(Clock::time_point now) noexcept;
    /// What was begun last is done. Returns when.
    Clock::time_point end() noexcept;

    void setWaiting(std::size_t requests) noexcept { monitor_.setWaiting(requests); }

private:
    void describe(const KernelRequest& request, const RequestHead& head, Clock::time_point since,
                  Clock::time_point started);
    void noteBeginning(Clock::time_point since, Clock::time_point started);
    std::string wholePath(NodeID node, std::string_view name);
    void tell(Clock::time_point now);

    KernelContext& context_;
    Monitor& monitor_;
    bool isRefused_ = false; // nothing of ours is asked: libfuse says that there is no such function
    Clock::time_point since_;
    std::optional<RequestEvent> event_; // while somebody listens
    std::array<char, RequestUnderWay::longestPath + 1> path_;
};

} // namespace fusehost
