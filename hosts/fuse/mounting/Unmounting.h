#pragma once

#include <optional>
#include <string>

namespace fusehost {

/// Why a mount could not be taken away.
struct UnmountFailure {
    bool busy = false;
    std::string reason;
};

/// Takes the mount at this absolute path away, as root by itself, as an ordinary user through fusermount3. Never looks
/// at what is mounted. Nothing on success.
std::optional<UnmountFailure> unmount(const std::string& mountPoint);

/// The same at once and in any case: the name disappears now, what is still open on it goes when it is closed.
std::optional<UnmountFailure> unmountLazily(const std::string& mountPoint);

/// Takes a mount of ours whose connection has ended away, lazily, if it is still there; `expected` is where it was
/// mounted. Never what lies on top of it. The kernel may have given its number to a new mount at the same path already,
/// so only one behind which there is nobody any more is touched. Throws foundation::Error if /proc cannot be read.
void unmountStaleDevice(unsigned deviceMinor, const std::string& expected);

} // namespace fusehost
