#pragma once

#include "helper/ExchangeObserver.h"
#include "hosts/fuse/monitor/LatencyHistogram.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What was counted of one operation of the helper.
struct ExchangeCounts {
    std::string operation;
    fusehost::LatencyCounts latency;             // from when the line was ready to be sent until the answer was there
    std::map<std::string, std::uint64_t> errors; // by code; "none": failed without one, "protocol": no valid answer,
                                                 // "gone": the helper's output ended, "other": one code too many
};

/// What an exchange that ended so is counted under; empty for a success.
std::string_view codeOf(const kemvi::ExchangeEnd& end);

struct MeteredExchanges {
    std::vector<ExchangeCounts> operations; // those of which there was one
    std::uint64_t bytesSent = 0;            // lines, as they went through the pipes
    std::uint64_t bytesReceived = 0;
    std::size_t openHandles = 0; // that the helper gave and was not told to release

    /// All of it, but for the greeting of a helper that has just been started.
    std::chrono::nanoseconds time() const;
};

struct ExchangeUnderWay {
    std::string_view operation;
    std::chrono::steady_clock::time_point since;
};

/// Counts the exchanges of a mount, and passes them on to whoever wants to hear of each. Counting takes no lock;
/// whatever reads may do so on any thread at any time, also while the helper hangs. Should two conversations end at
/// once, which happens when a helper is replaced, one count may be lost.
class ExchangeMeter final : public kemvi::ExchangeObserver {
public:
    using Clock = std::chrono::steady_clock;

    // Any thread
    MeteredExchanges read() const;
    std::optional<ExchangeUnderWay> underWay() const;

    /// From the next exchange on the listener is told of each. When `remove` returns it is told of none any more. It
    /// must not hold up whoever tells it, and call neither of these.
    void add(kemvi::ExchangeObserver& listener);
    void remove(kemvi::ExchangeObserver& listener);

    void exchangeBegan(const kemvi::HelperRequest& request,
                       const kemvi::HelperRequestEncoder::Line& line) noexcept override;
    void answerArrived() noexcept override;
    void exchangeEnded(const kemvi::HelperRequest& request, const kemvi::ExchangeEnd& end) noexcept override;

private:
    using Counter = std::atomic<std::uint64_t>;

    static constexpr std::size_t operationCount = 15; // the fourteen, and one for any other
    /// Helpers may make codes up: the first so many are told apart.
    static constexpr std::size_t mostCodes = 32;
    static constexpr std::size_t longestCode = 23;

    /// The codes met so far. One thread at a time adds, any reads.
    class Codes {
    public:
        std::size_t indexOf(std::string_view code) noexcept;

        std::string_view at(std::size_t index) const { return texts_[index].data(); }

        std::size_t count() const { return count_.load(std::memory_order_acquire); }

    private:
        std::array<std::array<char, longestCode + 1>, mostCodes> texts_{};
        std::atomic<std::size_t> count_{0};
    };

    struct Counters {
        fusehost::LatencyHistogram latency;
        std::array<Counter, mostCodes + 1> errors{}; // the last: other codes
    };

    struct Listener {
        kemvi::ExchangeObserver* observer;
        bool wasToldOfBeginning;
    };

    static std::size_t indexOf(std::string_view operation);
    static std::string_view nameOf(std::size_t index);
    void count(const kemvi::ExchangeEnd& end);
    void countHandles(std::string_view operation, const kemvi::ExchangeEnd& end);
    ExchangeCounts read(std::size_t operation) const;

    std::array<Counters, operationCount> counters_;
    Codes codes_;
    Counter sent_{0};
    Counter received_{0};
    Counter handles_{0};
    std::atomic<std::size_t> operation_{operationCount}; // under way; none: operationCount
    std::atomic<Clock::rep> since_{0};
    Clock::time_point arrived_; // the asking thread's own

    std::atomic<bool> isListenedTo_{false};
    std::mutex lock_; // guards the listeners; held while they are told
    std::vector<Listener> listeners_;
};

} // namespace cli
