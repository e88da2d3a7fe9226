#pragma once

#include "hosts/fuse/monitor/KernelOperation.h"
#include "hosts/fuse/monitor/Version.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fusehost {

/// A request of the kernel that is being executed, or what the host does of its own accord.
struct RequestUnderWay {
    std::uint64_t number = 0; // counts what was begun on this mount, from 1
    KernelOperation operation = KernelOperation::other;
    std::string path; // from the root of the mount; what is longer than `longestPath` lacks its front: "...rest"
    std::uint32_t thread = 0; // who asked, as the kernel names it; 0 if it cannot, or nobody did
    std::uint32_t user = 0;
    std::chrono::steady_clock::time_point since; // when it was read from the kernel

    static constexpr std::size_t longestPath = 1024; // bytes
};

/// Shows to all threads what one thread is at, without a lock: that thread may hang, and nobody waits for it then.
/// Posting costs some stores.
class UnderWayBoard {
public:
    // The executing thread
    /// `path` is cut off in front if it is too long. `number` is counted here.
    void post(KernelOperation operation, std::string_view path, std::uint32_t thread, std::uint32_t user,
              std::chrono::steady_clock::time_point since) noexcept;
    void clear() noexcept;

    /// Any thread. Nothing if nothing is under way.
    std::optional<RequestUnderWay> read() const;

private:
    using Word = std::uint64_t;
    static constexpr std::size_t pathWords = RequestUnderWay::longestPath / sizeof(Word);

    void readOnce(std::optional<RequestUnderWay>& found) const;

    Version version_; // of all that follows, but for the end of what is under way
    std::atomic<bool> isUnderWay_{false};
    std::atomic<Word> number_{0};
    std::atomic<Word> what_{0}; // operation, length of the path
    std::atomic<Word> who_{0};  // thread, user
    std::atomic<std::int64_t> since_{0};
    std::array<std::atomic<Word>, pathWords> path_{};
};

} // namespace fusehost
