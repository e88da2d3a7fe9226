#pragma once

#include "foundation/ISO8601.h"
#include "foundation/Pipe.h"
#include "helper/HelperExchange.h"
#include "helper/HelperObserver.h"
#include "helper/HelperProcess.h"
#include "helper/HelperRecords.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kemvi {

/// The operations of a helper, typed: each fills in a request, has it carried out (HelperExchange) and turns the answer
/// into a result. The client owns the helper's process (HelperProcess) and is the only code that talks to it.
///
/// Thread-safety: every operation may be called on any thread; operations on several threads queue. They block until
/// the helper has answered, without a time limit. `start` is to be called once, before anything else; `stop` may run at
/// any time.
///
/// All operations throw what HelperExchange throws, and AdapterError::protocolError for an answer without the result
/// that the operation needs. After any error the client remains usable. Every error says of which request it is (its
/// origin); one of a handle leaves the path to whoever knows it.
///
/// The process must ignore SIGPIPE: writing to a helper that has exited fails silently and shows as "helper closed
/// stdout".
class HelperClient {
public:
    /// `environment` is the whole environment of the helper. Does no input or output.
    HelperClient(std::string helperPath, std::map<std::string, std::string> environment);
    /// The same with somebody to be told of the helper's life, and somebody of each exchange: null, or to outlive the
    /// client.
    HelperClient(std::string helperPath, std::map<std::string, std::string> environment, HelperObserver* observer,
                 ExchangeObserver* exchanges = nullptr);
    HelperClient(const HelperClient&) = delete;
    HelperClient& operator=(const HelperClient&) = delete;
    /// Neither stops nor signals the helper.
    ~HelperClient();

    /// Launches "/usr/bin/env node <helperPath>". Throws the launch error. That `node` exists or the script runs is not
    /// checked: the first exchange tells.
    void start();

    /// Closes the helper's standard input and waits, without a time limit, for the helper to exit. May be called again.
    void stop();

    /// The helper's process id, 0 before `start`.
    pid_t processIdentifier() const { return process_.child()->processIdentifier(); }

    std::optional<JSONValue> ping();
    KemviStatFS statfs();
    /// In the helper's order.
    std::vector<KemviDirEntry> readdir(const std::string& path);
    KemviFileStat getattr(const std::string& path);
    /// The helper's handle. A number that does not fit 64 bits stops the process.
    std::int64_t open(const std::string& path, const std::vector<std::string>& flags);
    /// Bytes at `offset`; fewer or more than `length` if the helper says so.
    std::vector<std::byte> read(std::int64_t handle, std::int64_t offset, std::int64_t length);
    /// The same, decoded straight into `into`: stores as many of the first bytes as fit and returns how many came.
    std::size_t read(std::int64_t handle, std::int64_t offset, std::int64_t length, std::span<std::byte> into);
    void write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> data);
    void flush(std::int64_t handle);
    void release(std::int64_t handle);
    void mkdir(const std::string& path);
    void unlink(const std::string& path);
    void rename(const std::string& oldPath, const std::string& newPath);
    void chmod(const std::string& path, std::int64_t mode);
    void utimes(const std::string& path, foundation::Date mtime);

    const std::string& helperPath() const { return process_.helperPath(); }

    const std::map<std::string, std::string>& environment() const { return process_.environment(); }

    /// The helper's standard input and output. For whoever plays the helper at the other ends of a client that was
    /// never started.
    foundation::Pipe& input() { return process_.input(); }

    foundation::Pipe& output() { return process_.output(); }

private:
    /// `decode` takes base64 and returns false if it is not valid.
    template <typename Decode>
    void readPayload(std::int64_t handle, std::int64_t offset, std::int64_t length, Decode decode);
    void handleOperation(const char* op, std::int64_t handle);
    void pathOperation(const char* op, const std::string& path);
    void tellEnd(const std::string& lastRequest);

    HelperProcess process_;
    HelperExchange exchange_;
    HelperObserver* const observer_; // or null
    std::atomic<bool> endToTell_{false};
};

} // namespace kemvi
