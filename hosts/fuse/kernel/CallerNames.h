#pragma once

#include <cstdint>
#include <string>

namespace fusehost {

/// What a thread that waits for the file system is called, and of which process it is.
struct CallerName {
    std::string name;          // empty if it cannot be seen
    std::uint32_t process = 0; // the thread's own number if that cannot be seen
};

/// Asks /proc. `thread` is a thread's number as a request tells it; 0 stands for one that cannot be named.
CallerName callerName(std::uint32_t thread);

} // namespace fusehost
