#pragma once

#include "recording/Header.h"
#include "recording/LineMaker.h"
#include "recording/Output.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace recording {

/// Writes a recording while a mount goes on: what is to be recorded is copied, and a thread makes the lines and writes
/// them. A disk that cannot keep up is waited for, since a recording with holes cannot be replayed; but no longer than
/// `longestWait` at once: then, or when the file cannot be written, the recording ends, and nothing else does.
///
/// Thread-safe, but for the order of what is recorded at once.
class Writer {
public:
    using Clock = std::chrono::steady_clock;
    /// Called once, on one of the threads that record or on the writer's own, should the recording end before `close`:
    /// with the reason, for people.
    using EndedEarly = std::function<void(const std::string& reason)>;

    static constexpr std::size_t mostWaiting = std::size_t{64} << 20; // bytes; one line may be more
    static constexpr std::chrono::milliseconds longestWait{2000};

    /// Writes the header; `mountPoint` is left out where names are scrambled. Throws RecordingError.
    Writer(std::unique_ptr<Output> output, Settings settings, const std::string& kemviVersion,
           const std::string& mountPoint, EndedEarly endedEarly);
    /// Closes.
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// An exchange, of lines as they went over the pipes; without an answer where the helper gave none.
    void exchange(Clock::time_point sent, Clock::duration took, std::string_view request,
                  std::optional<std::string_view> answer);

    /// A request of the kernel, as the JSON object of a trace.
    void kernelRequest(std::string json);

    /// Writes what waits and a last line, which tells that the recording is whole.
    void close();

private:
    struct Event {
        bool isExchange = false;
        std::int64_t at = 0;   // microseconds since the start
        std::int64_t took = 0; // microseconds
        std::string first;     // the request; or what the kernel wanted
        std::optional<std::string> answer;

        std::size_t size() const { return sizeof *this + first.size() + (answer ? answer->size() : 0); }
    };

    void add(Event event);
    void run();
    bool takeWaiting(std::vector<Event>& events);
    void write(const std::vector<Event>& events);
    void endEarly(const std::string& reason);

    const Clock::time_point started_ = Clock::now();
    const EndedEarly endedEarly_;
    std::unique_ptr<Output> output_; // the writing thread's, from here to lines_
    LineMaker maker_;
    std::uint64_t lines_ = 0;
    bool flushed_ = true;

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::vector<Event> waiting_;
    std::size_t waitingBytes_ = 0; // of what is not written yet
    bool closing_ = false;
    bool ended_ = false; // nothing is recorded any more
    std::thread thread_;
};

} // namespace recording
