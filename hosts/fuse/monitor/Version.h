#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <utility>

namespace fusehost {

/// Lets any thread read what one thread writes, all of it as of one moment, without a lock: a reader that was overtaken
/// reads again, and the writer waits for nobody. What is written and read has to be atomic itself, stored to be
/// released and loaded to be acquired: a reader that meets a store of a later write then sees the later version, too.
class Version {
public:
    /// The one thread that writes.
    template <typename Write>
    void write(Write&& write) noexcept {
        const std::uint64_t version = version_.load(std::memory_order_relaxed);
        version_.store(version + 1, std::memory_order_relaxed);
        std::forward<Write>(write)();
        version_.store(version + 2, std::memory_order_release);
    }

    /// Any thread; calls `read` until nothing was written meanwhile. Not to be called while writing.
    template <typename Read>
    void read(Read&& read) const {
        // Writing takes far less than a microsecond, but a thread may be taken off its processor in the midst of it.
        while (!tryRead(read))
            std::this_thread::yield();
    }

    /// False if something is being written, or was while `read` went on: what it has found is to be dropped.
    template <typename Read>
    bool tryRead(Read&& read) const {
        const std::uint64_t version = version_.load(std::memory_order_acquire);
        if (version % 2 != 0)
            return false;
        std::forward<Read>(read)();
        return version_.load(std::memory_order_relaxed) == version;
    }

private:
    std::atomic<std::uint64_t> version_{0}; // odd while something is being written
};

} // namespace fusehost
