#pragma once

#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace cli {

/// What a process holds in memory, in bytes; nothing if it is gone or cannot be seen.
std::optional<std::uint64_t> residentBytes(pid_t process);

} // namespace cli
