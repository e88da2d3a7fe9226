#pragma once

#include "foundation/ChildProcess.h"
#include "foundation/ISO8601.h"
#include "foundation/JSON.h"
#include "foundation/Pipe.h"
#include "helper/BufferPool.h"
#include "helper/HelperRecords.h"
#include "helper/HelperRequest.h"
#include "helper/HelperResponse.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kemvi {

/// ErrorOrigin::state of every error after the helper has closed its output.
inline constexpr const char* helperGoneState = "the helper's output has ended";

/// Owns the helper process and is the only code that talks to it. Each operation is one exchange: one request line
/// written, one answer line read, strictly one exchange at a time.
///
/// Thread-safety: every operation may be called on any thread; operations on several threads queue. They block until
/// the helper has answered, without a time limit. `start` is to be called once, before anything else; `stop` may run at
/// any time.
///
/// All operations throw: AdapterError::protocolError for an answer that breaks the protocol ("helper closed stdout"
/// once the helper is gone), NSErrorException with the POSIX error for a failure that the helper reports,
/// foundation::DecodingError for a line that is not a response, foundation::EncodingError for a path that is not UTF-8.
/// After any error the client remains usable. Every error of an exchange says of which request it is (its origin); one
/// of a handle leaves the path to whoever knows it.
///
/// The process must ignore SIGPIPE: writing to a helper that has exited fails silently and shows as "helper closed
/// stdout".
class HelperClient {
public:
    /// `environment` is the whole environment of the helper. Does no input or output.
    HelperClient(std::string helperPath, std::map<std::string, std::string> environment);
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
    pid_t processIdentifier() const { return process_.processIdentifier(); }

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

    const std::string& helperPath() const { return helperPath_; }

    const std::map<std::string, std::string>& environment() const { return environment_; }

    /// The helper's standard input and output. For whoever plays the helper at the other ends of a client that was
    /// never started.
    foundation::Pipe& input() { return input_; }

    foundation::Pipe& output() { return output_; }

private:
    using LineData = std::shared_ptr<const foundation::ByteBuffer>;
    /// Decodes base64; false if it is not valid.
    using Base64Decoder = std::function<bool(std::string_view)>;

    HelperResponse exchange(HelperRequest& request, const HelperResponse::ResultHandler& onResult = {});
    LineData answerTo(HelperRequest& request);
    std::string takeID();
    LineData readLineData();
    void refuseUnlessAccepted(const HelperResponse& response, const std::string& id);
    std::string outOfStepState(const std::string& id);
    void readPayload(std::int64_t handle, std::int64_t offset, std::int64_t length, const Base64Decoder& decode);
    void handleOperation(const char* op, std::int64_t handle);
    void pathOperation(const char* op, const std::string& path);

    const std::string helperPath_;
    const std::map<std::string, std::string> environment_;
    foundation::ChildProcess process_;
    foundation::Pipe input_;  // the helper's standard input
    foundation::Pipe output_; // the helper's standard output
    std::int64_t nextID_ = 1;
    HelperRequestEncoder encoder_;
    foundation::JSONReader decoder_;
    std::shared_ptr<BufferPool> buffers_;         // line and payload memory; has a lock of its own, taken last
    std::atomic<std::int64_t> lastOutOfStep_{-1}; // the last request that another one's answer was read for
    std::atomic<std::int64_t> outOfStepSince_{0}; // the first of those in a row; for the log alone
    std::mutex requestLock_; // held for the whole of one exchange; guards nextID_, encoder_, decoder_
};

} // namespace kemvi
