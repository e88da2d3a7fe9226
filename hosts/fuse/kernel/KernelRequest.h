#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace fusehost {

/// One request as it was read from the kernel, not yet looked into by libfuse.
struct KernelRequest {
    struct Free {
        void operator()(void* memory) const;
    };

    std::unique_ptr<void, Free> memory; // as libfuse allocated it
    std::size_t size = 0;               // bytes of the request; 0 if there is none

    std::uint64_t unique() const;
    std::uint32_t opcode() const;
    /// The thread that asked; 0 if it cannot be named.
    std::uint32_t thread() const;
    bool isInterrupt() const;
    bool isFlush() const;
    /// For an interrupt: the unique number of the request that it is about.
    std::uint64_t interruptedUnique() const;
};

/// Answers a request with an error without asking libfuse. Once a request has an answer the kernel refuses any other,
/// so a late one does no harm; it tells whoever sends it that the first was taken.
void replyErrorDirectly(int descriptor, std::uint64_t unique, int error);

} // namespace fusehost
