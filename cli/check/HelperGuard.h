#pragma once

#include <memory>
#include <sys/types.h>

namespace cli::check {

/// Watches a helper under examination: tells when it has ended, and ends it. Where the platform allows, the helper is
/// also ended should this process die first. Not thread-safe.
class HelperGuard {
public:
    /// A child of this process that leads a process group. Throws CommandError, or the error of a launch.
    explicit HelperGuard(pid_t helper);
    /// The helper must have been waited for.
    ~HelperGuard();
    HelperGuard(const HelperGuard&) = delete;
    HelperGuard& operator=(const HelperGuard&) = delete;

    /// Ready for reading, to poll(2), once the helper has ended.
    int descriptor() const;

    /// Kills the helper and all of its process group.
    void kill();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace cli::check
