#pragma once

#include "cli/ServiceManager.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace cli {

/// Tells the service manager, if there is one, how the mount is: that it is ready, its state in a line, that it ends,
/// and that its process lives. Runs a thread of its own where somebody listens. Thread-safe.
///
/// The sign of life is that of this process. A helper that hangs does not keep it back: the mount then is as well as
/// its helper lets it be, and what is to be done about that is another setting's.
class ServiceReport {
public:
    /// `state` says how the mount is, in one line; it is called on this object's thread and must wait for nothing.
    ServiceReport(const ServiceManager& manager, std::function<std::string()> state);

    ~ServiceReport() { stop(); }

    ServiceReport(const ServiceReport&) = delete;
    ServiceReport& operator=(const ServiceReport&) = delete;

    bool isWanted() const { return manager_.listens(); }

    /// The mount is served.
    void ready();

    /// The mount ends. Signs of life go on.
    void stopping();

    /// `state` is not called any more after this has returned.
    void stop() noexcept;

private:
    void run();
    bool tell(const std::string& news); // false: again in a moment
    void tellState();
    void wakeWith(const char* line);

    const ServiceManager manager_;
    const std::function<std::string()> state_;
    std::string lastTold_; // the thread's own
    std::mutex mutex_;     // guards what follows
    std::condition_variable changed_;
    std::string news_; // lines to be sent
    bool stopped_ = false;
    std::thread thread_;
};

} // namespace cli
