#include "recording/Replayer.h"

#include "foundation/DecodingError.h"
#include "helper/HelperRecords.h"
#include "recording/JSONText.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>
#include <vector>

namespace recording {
namespace {

using kemvi::HelperRequest;
using kemvi::JSONObject;
using kemvi::JSONValue;

constexpr auto changes = std::to_array<std::string_view>({"chmod", "mkdir", "rename", "unlink", "utimes", "write"});

std::optional<std::vector<std::string>> flagsOf(const JSONObject& request) {
    const JSONValue* const flags = request.find("flags");
    if (flags == nullptr || flags->asArray() == nullptr)
        return std::nullopt;
    std::vector<std::string> texts;
    for (const JSONValue& flag : *flags->asArray())
        if (flag.asString() != nullptr)
            texts.push_back(*flag.asString());
    return texts;
}

std::optional<std::string> textOf(const JSONObject& object, std::string_view key) {
    const JSONValue* const value = object.find(key);
    return value != nullptr && value->asString() != nullptr ? std::optional(*value->asString()) : std::nullopt;
}

// As the text of a payload stands on a request line.
std::string withEscapedSlashes(std::string_view base64) {
    std::string escaped;
    escaped.reserve(base64.size());
    for (const char c : base64)
        escaped.append(c == '/' ? "\\" : "").push_back(c);
    return escaped;
}

// The base64 text of so many bytes that are zero.
std::string zeros(std::uint64_t length) {
    std::string text(length / 3 * 4, 'A');
    if (length % 3 != 0)
        text += length % 3 == 1 ? "AA==" : "AAA=";
    return text;
}

std::optional<std::int64_t> handleIn(const JSONObject& answer) {
    const JSONValue* const result = answer.find("result");
    const JSONValue* const handle =
        result != nullptr && result->asObject() != nullptr ? result->asObject()->find("handle") : nullptr;
    if (handle == nullptr || handle->asNumber() == nullptr || !kemvi::fitsInteger(*handle->asNumber()))
        return std::nullopt;
    return kemvi::integerFromNumber(*handle->asNumber());
}

bool isOk(const JSONObject& answer) {
    const JSONValue* const ok = answer.find("ok");
    return ok != nullptr && ok->asBool() != nullptr && *ok->asBool();
}

} // namespace

bool isChange(const Exchange& exchange) {
    const std::string op = exchange.op();
    if (op != "open")
        return std::find(changes.begin(), changes.end(), op) != changes.end();
    const auto flags = flagsOf(exchange.request).value_or(std::vector<std::string>());
    return std::find(flags.begin(), flags.end(), "write") != flags.end();
}

ReplayTotals Replayer::run(const std::function<bool()>& mustStop) {
    while (!totals_.stopped) {
        const auto entry = reader_.next();
        if (!entry)
            break;
        if (const auto* const lost = std::get_if<Lost>(&*entry))
            totals_.lost += lost->lines;
        const auto* const exchange = std::get_if<Exchange>(&*entry);
        if (exchange == nullptr)
            continue;
        totals_.stopped = mustStop();
        if (!totals_.stopped)
            replay(*exchange);
    }
    totals_.cut = !totals_.stopped && reader_.wasCut();
    totals_.lastLine = reader_.line();
    return totals_;
}

const Replayer::OpenFile* Replayer::fileOf(const Exchange& recorded) const {
    const auto handle = recorded.number("handle");
    const auto found = handle ? files_.find(*handle) : files_.end();
    return found == files_.end() ? nullptr : &found->second;
}

std::string Replayer::shown(const Exchange& recorded) const {
    std::string text = recorded.op();
    for (const char* const member : {"path", "oldPath", "newPath"})
        if (const std::string path = recorded.text(member); !path.empty())
            text += " " + path;
    if (const OpenFile* const file = fileOf(recorded))
        text += " " + file->path;
    if (const auto offset = recorded.number("offset"))
        text += " " + std::to_string(*offset);
    if (const auto length = recorded.number("length"))
        text += "+" + std::to_string(*length);
    return text;
}

void Replayer::note(const Exchange& recorded, Difference difference) {
    found_({reader_.line(), shown(recorded), std::move(difference)});
}

// A helper's first request has this number: when it comes again, the helper was another one.
void Replayer::replay(const Exchange& recorded) {
    if (recorded.text("id") == "1" && totals_.requests > 0) {
        files_.clear();
        if (!helper_.restart()) {
            totals_.stopped = true;
            ++totals_.different;
            note(recorded, {"answer", "the helper was started anew", helper_.whyNot()});
            return;
        }
    }
    ++totals_.requests;
    HelperRequest request;
    if (!fill(request, recorded)) {
        ++totals_.withoutFile;
        return;
    }
    const auto begin = std::chrono::steady_clock::now();
    const auto line = helper_.ask(request);
    const auto took = std::chrono::steady_clock::now() - begin;
    if (!line && !recorded.answer) { // as it was then
        totals_.stopped = true;
        return;
    }
    ++totals_.asked;
    totals_.recordedTime += recorded.took;
    totals_.time += std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    if (line) {
        compare(recorded, request.id, *line);
        return;
    }
    totals_.stopped = true;
    ++totals_.different;
    note(recorded, {"answer", "an answer", helper_.whyNot()});
}

// False for a request of a file that is not open.
bool Replayer::fill(HelperRequest& request, const Exchange& recorded) {
    request.op = recorded.op();
    request.path = textOf(recorded.request, "path");
    request.oldPath = textOf(recorded.request, "oldPath");
    request.newPath = textOf(recorded.request, "newPath");
    request.mtime = textOf(recorded.request, "mtime");
    request.flags = flagsOf(recorded.request);
    request.offset = recorded.number("offset");
    request.length = recorded.number("length");
    request.mode = recorded.number("mode");
    if (recorded.request.find("handle") != nullptr) {
        const OpenFile* const file = fileOf(recorded);
        if (file == nullptr)
            return false;
        request.handle = file->handle;
    }
    if (request.op == "write")
        fillData(request, recorded);
    return true;
}

void Replayer::fillData(HelperRequest& request, const Exchange& recorded) {
    if (const auto base64 = textOf(recorded.request, "dataBase64")) {
        payload_ = withEscapedSlashes(*base64);
    } else {
        payload_ =
            zeros(static_cast<std::uint64_t>(std::max<std::int64_t>(0, recorded.number("dataLength").value_or(0))));
        if (const OpenFile* const file = fileOf(recorded))
            invented_.written(file->path);
    }
    request.dataBase64 = payload_;
}

DataRule Replayer::dataRule(const Exchange& recorded) {
    const OpenFile* const file = fileOf(recorded);
    if (recorded.op() != "read" || file == nullptr || !invented_.has(file->path))
        return DataRule::contents;
    ++totals_.notCompared;
    return DataRule::lengthOnly;
}

void Replayer::compare(const Exchange& recorded, const std::string& id, const std::string& line) {
    std::vector<JSONObject::Member> members;
    try {
        json_.readObject(line, [&](std::string_view key, foundation::JSONElement& value) {
            std::string name(key);
            members.emplace_back(std::move(name), JSONValue::read(value));
        });
    } catch (const foundation::DecodingError&) {
        if (recorded.unreadable)
            return;
        ++totals_.different;
        note(recorded,
             {"answer", recorded.answer ? "a JSON object" : "none", "no JSON object: " + line.substr(0, 200)});
        return;
    }
    const JSONObject now(std::move(members));
    std::vector<Difference> differences;
    if (textOf(now, "id") != id)
        differences.push_back({"id", id, now.find("id") != nullptr ? jsonText(*now.find("id")) : std::string()});
    if (recorded.answer) {
        for (Difference& difference :
             compareAnswers(recorded.op(), *recorded.answer, now, options_, dataRule(recorded)))
            differences.push_back(std::move(difference));
    } else if (recorded.unreadable) {
        differences.push_back({"answer", "no JSON object", "a JSON object"});
    } else {
        ++totals_.unanswered;
    }
    totals_.different += differences.empty() ? 0 : 1;
    for (Difference& difference : differences)
        note(recorded, std::move(difference));
    follow(recorded, now);
}

// What the answer means for the requests to come.
void Replayer::follow(const Exchange& recorded, const JSONObject& now) {
    const std::string op = recorded.op();
    if (op == "open") {
        followOpen(recorded, now);
    } else if (op == "release") {
        files_.erase(recorded.number("handle").value_or(0));
    } else if (op == "unlink" && isOk(now)) {
        invented_.removed(recorded.text("path"));
    } else if (op == "rename" && isOk(now)) {
        const std::string from = recorded.text("oldPath");
        const std::string to = recorded.text("newPath");
        invented_.renamed(from, to);
        for (auto& [handle, file] : files_)
            if (file.path == from || file.path.starts_with(from + "/"))
                file.path = to + file.path.substr(from.size());
    }
}

void Replayer::followOpen(const Exchange& recorded, const JSONObject& now) {
    const auto before = recorded.answer && recorded.succeeded() ? handleIn(*recorded.answer) : std::nullopt;
    const auto after = isOk(now) ? handleIn(now) : std::nullopt;
    if (before && after) {
        files_.insert_or_assign(before.value_or(0), OpenFile{*after, recorded.text("path")});
    } else if (after) { // nobody will ask for it
        HelperRequest request;
        request.op = "release";
        request.handle = after;
        (void)helper_.ask(request);
    }
}

} // namespace recording
