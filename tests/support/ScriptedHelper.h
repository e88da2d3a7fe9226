#pragma once

#include "helper/HelperClient.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace testsupport {

/// One request as it arrived.
struct ScriptedRequest {
    std::string line; // as sent, without byte 10
    std::string id;
    std::string op;
    kemvi::JSONObject members;

    std::string string(std::string_view key) const;
    std::int64_t integer(std::string_view key) const;

    /// The request in short, such as "getattr /a", "open /a read", "read #3 @0 +4096", "write #3 @0 hello",
    /// "rename /a /b": operation, then the fields in the protocol's order; handles marked #, offsets @, lengths +,
    /// written bytes as text.
    std::string summary() const;
};

/// What a scripted helper says to a request.
class ScriptedAnswer {
public:
    /// `ok` true; `result` is the JSON text of the result, absent if empty.
    static ScriptedAnswer success(std::string result = {});
    /// `ok` true with these bytes in base64 as payload.
    static ScriptedAnswer data(std::string_view bytes);
    static ScriptedAnswer failure(std::string_view code, std::string_view message);
    /// This line instead of a proper answer.
    static ScriptedAnswer line(std::string line);
    /// No answer: the helper closes its output.
    static ScriptedAnswer hangUp();

    /// The line that answers the request of this id; nothing for `hangUp`.
    std::optional<std::string> lineFor(const std::string& id) const;

private:
    enum class Kind { members, line, hangUp };

    ScriptedAnswer(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}

    Kind kind_;
    std::string text_;
};

/// The JSON string literal of `text`.
std::string quoted(std::string_view text);

/// The JSON text of a file's or directory's metadata; `modifiedAt` is left out if empty.
std::string statJSON(std::string_view path, bool isDirectory, std::int64_t size, std::string_view modifiedAt = {});

/// A helper played by a thread at the other ends of a client's pipes: records every request and answers from its
/// script. Unless told otherwise it numbers the handles it opens from 1 on, finds no file, lists empty directories,
/// reads nothing and agrees to everything else. SIGPIPE is ignored from the first one on. Thread-safe.
class ScriptedHelper {
public:
    using Handler = std::function<ScriptedAnswer(const ScriptedRequest&)>;

    ScriptedHelper();
    /// Ends the conversation and waits for the thread; whoever holds up a handler must have let it go.
    ~ScriptedHelper();
    ScriptedHelper(const ScriptedHelper&) = delete;
    ScriptedHelper& operator=(const ScriptedHelper&) = delete;

    const std::shared_ptr<kemvi::HelperClient>& client() const { return client_; }

    /// Answers every request of this operation with `handler` from now on. It runs on the helper's thread.
    void on(const std::string& op, Handler handler);
    void on(const std::string& op, ScriptedAnswer answer);
    /// Answers the next request of this operation that no earlier call has spoken for.
    void once(const std::string& op, ScriptedAnswer answer);
    /// Answers "getattr" of this path with these facts.
    void addStat(const std::string& path, bool isDirectory, std::int64_t size, const std::string& modifiedAt = {});

    /// The requests since the last call, in order.
    std::vector<ScriptedRequest> takeRequests();
    /// The same as summaries.
    std::vector<std::string> takeSummaries();

    /// Blocks until the conversation has ended: the client has closed its end, or the script hung up.
    void waitUntilEnded();

private:
    void run();
    ScriptedAnswer answerTo(const ScriptedRequest& request);
    ScriptedAnswer defaultAnswer(const ScriptedRequest& request);

    std::shared_ptr<kemvi::HelperClient> client_;
    std::mutex lock_; // guards all below but the thread
    std::condition_variable endedChanged_;
    bool ended_ = false;
    std::vector<ScriptedRequest> requests_;
    std::map<std::string, Handler> handlers_;
    std::map<std::string, std::deque<ScriptedAnswer>> onceAnswers_;
    std::map<std::string, std::string> stats_; // JSON text by path
    std::int64_t nextHandle_ = 1;
    std::thread thread_;
};

} // namespace testsupport
