#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// The service manager that started this process and wants to be told how it is (systemd, for a unit of Type=notify),
/// or nobody. Speaks the datagrams of sd_notify(3). Thread-safe.
class ServiceManager {
public:
    /// Nobody.
    ServiceManager() = default;

    /// The one that the environment names (NOTIFY_SOCKET, WATCHDOG_USEC, WATCHDOG_PID), which is taken out of it: a
    /// helper does not speak in our name. To be called before there are other threads.
    static ServiceManager takeFromEnvironment();

    bool listens() const { return !address_.empty(); }

    /// How often it wants a sign of life at least, if it wants any.
    std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }

    /// Sends lines such as "READY=1"; a manager that is gone is told nothing. Waits for nobody: false if there is no
    /// room for the moment, as where it reads nothing while it starts many services.
    bool tell(std::string_view lines) const noexcept;

private:
    std::string address_; // a path, or, with a NUL in front, a name without one
    std::optional<std::chrono::microseconds> watchdog_;
};

} // namespace cli
