#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace control {

class Mailbox;

/// The lines that one peer is sent, as its producers make them. All that a producer may call is thread-safe, waits for
/// no peer and costs no more than a short lock; each subscriber has a stream of its own.
///
/// A peer that reads too slowly loses lines: where some were lost a line {"lost":N} stands in their place. One that
/// reads nothing for a while (ControlServer::usualPatience) loses its connection.
class LineStream {
public:
    /// `room` is the most that waits, in bytes.
    LineStream(std::shared_ptr<Mailbox> mailbox, std::size_t room);

    /// Hands over one line, without a line break, and returns at once. False if it was lost: there is no room, or
    /// nobody is there any more.
    bool push(std::string_view line) noexcept;

    /// False once the peer is gone, or the stream was ended: what is pushed then goes nowhere. Costs one load.
    bool isWanted() const noexcept { return wanted_.load(std::memory_order_relaxed); }

    /// How many lines were lost since the beginning.
    std::uint64_t lost() const noexcept { return allLost_.load(std::memory_order_relaxed); }

    /// No more lines come: when those that wait are written the connection is closed.
    void end() noexcept;

    // For the channel.

    /// Takes what waits, each line with its line break. `into` must be empty; what memory it has is used again.
    void take(std::string& into);
    /// Nobody is there any more: what waits is dropped.
    void cutOff() noexcept;
    /// True if there is nothing to take and nothing will come.
    bool isExhausted() const;

private:
    const std::shared_ptr<Mailbox> mailbox_;
    const std::size_t room_;
    std::atomic<bool> wanted_{true};
    std::atomic<std::uint64_t> allLost_{0};
    mutable std::mutex mutex_;   // guards what follows; held for a few instructions, never while anything is written
    std::string waiting_;        // lines with their breaks
    std::uint64_t lostHere_ = 0; // behind the last line that waits
    bool ended_ = false;
};

} // namespace control
