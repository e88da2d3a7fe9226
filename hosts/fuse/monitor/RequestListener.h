#pragma once

#include "hosts/fuse/monitor/KernelOperation.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace fusehost {

/// One request of the kernel that has been executed, with everything that may be told of it; or a piece of idle work.
struct RequestEvent {
    /// A name, which is a literal, and a number or text.
    using Argument = std::pair<std::string_view, std::variant<std::int64_t, std::string>>;

    KernelOperation operation = KernelOperation::other;
    std::uint32_t opcode = 0; // the kernel's number for it; 0 for idle work
    std::string path;         // whole; empty where a request is about no file
    std::vector<Argument> arguments;
    std::string process;      // the name of the thread that asked; empty if it cannot be seen
    std::uint32_t pid = 0;    // of its process, or of the thread itself where that cannot be seen; 0: none
    std::uint32_t thread = 0; // 0 if the kernel cannot name it
    std::uint32_t user = 0;
    std::chrono::system_clock::time_point began; // when it was read from the kernel
    std::chrono::nanoseconds waited{0};          // of `duration`, until its execution began
    std::chrono::nanoseconds duration{0};
    int error = 0;                      // an errno value; 0: it was done
    std::optional<std::uint64_t> bytes; // of a file's contents, read or written
};

/// Is told of every request while it is added to a Monitor. Called on the executing thread, which it must not hold up,
/// under a lock that is only held for such calls.
class RequestListener {
public:
    virtual ~RequestListener() = default;
    virtual void requestEnded(const RequestEvent& event) noexcept = 0;
};

} // namespace fusehost
