#pragma once

#include <string>
#include <sys/types.h>

namespace fusehost {

/// Takes the mount away should this process die without doing so itself. Needed for ordinary users: the watcher that
/// fusermount3 leaves behind asks the dead mount as root, is refused as any other user is, and gives up.
///
/// The guard is a process of its own outside the terminal's reach, which waits for the other end of a pipe to close.
/// Not thread-safe.
class StaleMountGuard {
public:
    /// Guards the mount that is at `mountPoint` now. If that cannot be had a log line says so; the mount is as good.
    explicit StaleMountGuard(const std::string& mountPoint);
    /// Ends the guard, which then leaves the mount alone.
    ~StaleMountGuard();
    StaleMountGuard(const StaleMountGuard&) = delete;
    StaleMountGuard& operator=(const StaleMountGuard&) = delete;

private:
    void start(const std::string& mountPoint, const std::string& mountID);

    pid_t pid_ = -1;
    int pipe_ = -1;
};

} // namespace fusehost
