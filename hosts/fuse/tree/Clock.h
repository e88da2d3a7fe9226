#pragma once

#include <chrono>
#include <functional>

namespace fusehost {

/// Tells the time; handed to whoever judges age, so that a test says what time it is.
using Clock = std::function<std::chrono::steady_clock::time_point()>;

/// For how long an answer of the helper also serves the request that follows it. Short: for so long a change made
/// behind the mount goes unnoticed, and a file made there under the very name of a create would be emptied.
inline constexpr std::chrono::milliseconds briefTrust{20};

} // namespace fusehost
