#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <sys/uio.h>
#include <vector>

namespace fusehosttests {

/// The bytes of one of the kernel's structures.
template <typename Structure>
std::string bytesOf(const Structure& structure) {
    return {reinterpret_cast<const char*>(&structure), sizeof structure};
}

/// The structure that `bytes` begin with; what they lack is zero.
template <typename Structure>
Structure fromBytes(std::string_view bytes, std::size_t at = 0) {
    Structure structure{};
    if (at < bytes.size())
        std::memcpy(&structure, bytes.data() + at, std::min(sizeof structure, bytes.size() - at));
    return structure;
}

/// The kernel's end of a connection that carries one datagram per request and per reply. As the kernel does, it takes
/// one reply to each request and refuses any other with ENOENT. Thread-safe.
class PlayedKernel {
public:
    struct Answer {
        int error = 0; // an errno value
        std::string body;
    };

    PlayedKernel();
    ~PlayedKernel();
    PlayedKernel(const PlayedKernel&) = delete;
    PlayedKernel& operator=(const PlayedKernel&) = delete;

    /// The host's end, non-blocking. Whoever takes it closes it.
    int takeHostEnd();

    // What programs do
    /// Sends a request and returns its number. `thread` is the caller; 0: one that cannot be named.
    std::uint64_t ask(std::uint32_t opcode, std::uint64_t node, std::string_view body = {}, std::uint32_t thread = 0);
    /// The same with a caller who is gone by the time of the reply, which is refused.
    std::uint64_t askAndLeave(std::uint32_t opcode, std::uint64_t node, std::string_view body = {});
    void interrupt(std::uint64_t request);
    /// Waits for the reply to a request; fails the test when none comes.
    Answer answerTo(std::uint64_t request);
    /// Waits until all requests so far have been read, whether or not they are executed.
    void waitUntilRead();
    Answer call(std::uint32_t opcode, std::uint64_t node, std::string_view body = {});
    /// From now on requests come from this user.
    void beUser(std::uint32_t uid);
    bool isAnswered(std::uint64_t request);
    /// The numbers of the requests in the order in which they were answered.
    std::vector<std::uint64_t> answered();
    /// How many replies were refused.
    int refusals();
    void waitForRefusals(int count);

    // What it is told unasked
    /// Waits until so many notices have come and returns all, such as "expire 1/name", "drop 1/name", "forget 5" and
    /// "attributes 1".
    std::vector<std::string> notices(std::size_t count);

    // What may happen to the connection
    void unmount();
    /// From now on reading is called for, and fails.
    void failReading(int error);
    /// Waits until reading has failed so many times.
    void waitForFailedReads(int count);

    /// How many times the host has tried to read.
    int reads();

    // The host's side
    ssize_t read(int descriptor, void* memory, std::size_t size);
    ssize_t write(int descriptor, iovec* parts, int count);

private:
    void send(std::uint32_t opcode, std::uint64_t unique, std::uint64_t node, std::string_view body,
              std::uint32_t thread);
    /// Takes in what was written to the connection without `write`.
    void takeIn();

    std::mutex lock_;
    std::condition_variable changed_;
    int kernelEnd_ = -1;
    int hostEnd_ = -1;
    std::uint64_t next_ = 2;
    std::uint32_t user_ = 0;
    std::map<std::uint64_t, Answer> answers_;
    std::vector<std::uint64_t> order_;
    std::vector<std::string> notices_;
    std::string received_;         // room for one datagram
    std::set<std::uint64_t> gone_; // requests whose callers left
    int refusals_ = 0;
    int readError_ = 0;
    int failedReads_ = 0;
    int reads_ = 0;
};

} // namespace fusehosttests
