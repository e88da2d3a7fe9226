#pragma once

#include <optional>
#include <string>

namespace cli {

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

} // namespace cli
