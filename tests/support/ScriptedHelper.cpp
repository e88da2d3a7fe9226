#include "support/ScriptedHelper.h"

#include "foundation/Base64.h"
#include "foundation/ByteBuffer.h"
#include "foundation/JSON.h"

#include <csignal>
#include <cstdio>

namespace testsupport {
namespace {

using kemvi::JSONValue;

std::string decoded(const std::string& base64) {
    const auto length = foundation::base64::decodedLength(base64);
    if (!length)
        return "<not base64>";
    std::string bytes(*length, '\0');
    const auto into = std::as_writable_bytes(std::span(bytes));
    return foundation::base64::decode(base64, into) ? bytes : "<not base64>";
}

std::string plain(const JSONValue& value) {
    if (const double* number = value.asNumber())
        return std::to_string(static_cast<std::int64_t>(*number));
    if (const JSONValue::Array* array = value.asArray()) {
        std::string text;
        for (const JSONValue& element : *array)
            text += (text.empty() ? "" : ",") + element.description();
        return text;
    }
    return value.description();
}

ScriptedRequest parsed(const foundation::ByteBuffer& line, foundation::JSONReader& reader) {
    std::vector<kemvi::JSONObject::Member> members;
    reader.readObject(line.view(), [&](std::string_view key, foundation::JSONElement& element) {
        std::string name(key); // the key lies in the reader, which the value's reading uses again
        members.emplace_back(std::move(name), JSONValue::read(element));
    });
    ScriptedRequest request{std::string(line.view()), {}, {}, kemvi::JSONObject(std::move(members))};
    request.id = request.string("id");
    request.op = request.string("op");
    return request;
}

} // namespace

std::string ScriptedRequest::string(std::string_view key) const {
    const JSONValue* value = members.find(key);
    return value && value->asString() ? *value->asString() : std::string();
}

std::int64_t ScriptedRequest::integer(std::string_view key) const {
    const JSONValue* value = members.find(key);
    return value && value->asNumber() ? static_cast<std::int64_t>(*value->asNumber()) : 0;
}

std::string ScriptedRequest::summary() const {
    struct Field {
        const char* key;
        const char* mark;
    };

    static constexpr Field fields[] = {{"path", ""},    {"oldPath", ""}, {"newPath", ""}, {"flags", ""},
                                       {"handle", "#"}, {"offset", "@"}, {"length", "+"}};
    std::string text = op;
    for (const Field& field : fields)
        if (const JSONValue* value = members.find(field.key))
            text.append(" ").append(field.mark).append(plain(*value));
    if (members.find("dataBase64"))
        text += " " + decoded(string("dataBase64"));
    if (members.find("mode")) {
        char octal[32];
        std::snprintf(octal, sizeof octal, " 0%llo", static_cast<unsigned long long>(integer("mode")));
        text += octal;
    }
    if (members.find("mtime"))
        text += " " + string("mtime");
    return text;
}

std::string quoted(std::string_view text) {
    std::string literal = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            literal.append(1, '\\').append(1, character);
        } else if (static_cast<unsigned char>(character) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(character));
            literal += escape;
        } else {
            literal += character;
        }
    }
    return literal + "\"";
}

std::string statJSON(std::string_view path, bool isDirectory, std::int64_t size, std::string_view modifiedAt) {
    const std::string name(path == "/" ? path : path.substr(path.rfind('/') + 1));
    std::string text = "{\"path\":" + quoted(path) + ",\"name\":" + quoted(name) +
                       ",\"isDirectory\":" + (isDirectory ? "true" : "false") + ",\"size\":" + std::to_string(size);
    if (!modifiedAt.empty())
        text += ",\"modifiedAt\":" + quoted(modifiedAt);
    return text + "}";
}

ScriptedAnswer ScriptedAnswer::success(std::string result) {
    return {Kind::members, "\"ok\":true" + (result.empty() ? "" : ",\"result\":" + result)};
}

ScriptedAnswer ScriptedAnswer::data(std::string_view bytes) {
    std::string base64(foundation::base64::escapedRoom(bytes.size()), '\0');
    base64.resize(foundation::base64::encodeEscapingSlashes(std::as_bytes(std::span(bytes)), base64.data()));
    return {Kind::members, "\"ok\":true,\"dataBase64\":\"" + base64 + "\""};
}

ScriptedAnswer ScriptedAnswer::failure(std::string_view code, std::string_view message) {
    return {Kind::members,
            "\"ok\":false,\"error\":{\"message\":" + quoted(message) + ",\"code\":" + quoted(code) + "}"};
}

ScriptedAnswer ScriptedAnswer::line(std::string line) {
    return {Kind::line, std::move(line)};
}

ScriptedAnswer ScriptedAnswer::hangUp() {
    return {Kind::hangUp, {}};
}

std::optional<std::string> ScriptedAnswer::lineFor(const std::string& id) const {
    switch (kind_) {
    case Kind::members: return "{\"id\":" + quoted(id) + "," + text_ + "}";
    case Kind::line: return text_;
    case Kind::hangUp: break;
    }
    return std::nullopt;
}

ScriptedHelper::ScriptedHelper()
    : client_(std::make_shared<kemvi::HelperClient>("helper.js", std::map<std::string, std::string>())) {
    std::signal(SIGPIPE, SIG_IGN);
    thread_ = std::thread([this] { run(); });
}

ScriptedHelper::~ScriptedHelper() {
    client_->input().fileHandleForWriting().close();
    thread_.join();
}

void ScriptedHelper::on(const std::string& op, Handler handler) {
    std::lock_guard guard(lock_);
    handlers_[op] = std::move(handler);
}

void ScriptedHelper::on(const std::string& op, ScriptedAnswer answer) {
    on(op, [answer = std::move(answer)](const ScriptedRequest&) { return answer; });
}

void ScriptedHelper::once(const std::string& op, ScriptedAnswer answer) {
    std::lock_guard guard(lock_);
    onceAnswers_[op].push_back(std::move(answer));
}

void ScriptedHelper::addStat(const std::string& path, bool isDirectory, std::int64_t size,
                             const std::string& modifiedAt) {
    std::lock_guard guard(lock_);
    stats_[path] = statJSON(path, isDirectory, size, modifiedAt);
}

std::vector<ScriptedRequest> ScriptedHelper::takeRequests() {
    std::lock_guard guard(lock_);
    return std::exchange(requests_, {});
}

std::vector<std::string> ScriptedHelper::takeSummaries() {
    std::vector<std::string> summaries;
    for (const ScriptedRequest& request : takeRequests())
        summaries.push_back(request.summary());
    return summaries;
}

void ScriptedHelper::waitUntilEnded() {
    std::unique_lock guard(lock_);
    endedChanged_.wait(guard, [this] { return ended_; });
}

void ScriptedHelper::run() {
    foundation::FileHandle& requests = client_->input().fileHandleForReading();
    foundation::FileHandle& answers = client_->output().fileHandleForWriting();
    foundation::JSONReader reader;
    foundation::ByteBuffer line;
    while (requests.readLine(line)) {
        const ScriptedRequest request = parsed(line, reader);
        const auto answer = answerTo(request).lineFor(request.id);
        line.clear();
        if (!answer)
            break;
        answers.write(*answer + "\n");
    }
    answers.close();
    std::lock_guard guard(lock_);
    ended_ = true;
    endedChanged_.notify_all();
}

ScriptedAnswer ScriptedHelper::answerTo(const ScriptedRequest& request) {
    Handler handler;
    {
        std::lock_guard guard(lock_);
        requests_.push_back(request);
        if (auto& waiting = onceAnswers_[request.op]; !waiting.empty()) {
            ScriptedAnswer answer = std::move(waiting.front());
            waiting.pop_front();
            return answer;
        }
        const auto found = handlers_.find(request.op);
        if (found == handlers_.end())
            return defaultAnswer(request);
        handler = found->second;
    }
    return handler(request); // unlocked: it may wait for something
}

ScriptedAnswer ScriptedHelper::defaultAnswer(const ScriptedRequest& request) {
    if (request.op == "open")
        return ScriptedAnswer::success("{\"handle\":" + std::to_string(nextHandle_++) + "}");
    if (request.op == "read")
        return ScriptedAnswer::data("");
    if (request.op == "readdir")
        return ScriptedAnswer::success("[]");
    if (request.op == "statfs")
        return ScriptedAnswer::success("{}");
    if (request.op == "getattr") {
        const auto found = stats_.find(request.string("path"));
        return found == stats_.end() ? ScriptedAnswer::failure("ENOENT", "no such file")
                                     : ScriptedAnswer::success(found->second);
    }
    return ScriptedAnswer::success();
}

} // namespace testsupport
