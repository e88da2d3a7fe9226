#pragma once

#include "foundation/Descriptor.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

namespace kemvi::kit {

/// Tells a mount of changes over its control channel, from a thread of its own: one request at a time, whatever gathers
/// meanwhile in the next. Thread-safe.
class ChangeNotices {
public:
    /// Takes lines for people; on any thread.
    using Reporter = std::function<void(const std::string& text)>;

    static constexpr std::size_t mostWaiting = 10'000;         // paths; more of them are told as a change of everything
    static constexpr std::size_t mostPerRequest = 64UL * 1024; // bytes; whatever they are escaped to is taken
    static constexpr std::chrono::milliseconds firstPause{50}; // before another attempt to connect; doubled for each
    static constexpr std::chrono::milliseconds longestPause{5000};

    /// `address` is the path of the mount's socket. Connects when there is something to tell. Throws std::system_error
    /// if the process can have no more threads.
    ChangeNotices(std::string address, Reporter say);
    /// Whatever has not been told by then never is. Waits for nothing but the thread.
    ~ChangeNotices();
    ChangeNotices(const ChangeNotices&) = delete;
    ChangeNotices& operator=(const ChangeNotices&) = delete;

    /// Returns at once.
    void add(std::span<const std::string> paths);

private:
    using Guard = std::unique_lock<std::mutex>;

    void run();
    void tell(Guard& guard);
    /// Connected, and greeted by the mount.
    bool connect(Guard& guard);
    void disconnect();
    /// The connection ended though nothing was asked.
    bool isStale() const;
    std::string takeRequest();
    void restoreAsked();
    bool send(std::string_view text) const;
    /// A whole line, and what it says is an answer or a greeting. False if the connection is of no use any more.
    bool hear();
    void pause(Guard& guard);
    void sayOnce(const std::string& text);

    const std::string address_;
    const Reporter say_;

    // The thread's own.
    std::string received_;
    std::vector<std::string> asked_; // the paths of the request that is not answered yet
    std::chrono::milliseconds pause_ = firstPause;
    std::unordered_set<std::string> said_;

    std::mutex lock_; // guards what follows
    std::condition_variable changed_;
    std::vector<std::string> waiting_;          // in their order,
    std::unordered_set<std::string> isWaiting_; // each once
    foundation::Descriptor socket_;             // opened and closed by the thread alone
    bool isEnding_ = false;

    std::thread thread_;
};

} // namespace kemvi::kit
