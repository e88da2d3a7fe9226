#include "recording/Report.h"

#include "foundation/ISO8601.h"
#include "foundation/JSONWriter.h"
#include "helper/HelperRecords.h"
#include "recording/ReportParts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

namespace recording {
namespace {

using foundation::jsonString;
using kemvi::JSONObject;
using kemvi::JSONValue;

std::string textIn(const JSONObject& object, std::string_view key) {
    const JSONValue* const value = object.find(key);
    return value != nullptr && value->asString() != nullptr ? *value->asString() : std::string();
}

std::int64_t numberIn(const JSONObject& object, std::string_view key) {
    const JSONValue* const value = object.find(key);
    const double* const number = value != nullptr ? value->asNumber() : nullptr;
    return number != nullptr && kemvi::fitsInteger(*number) ? kemvi::integerFromNumber(*number) : 0;
}

/// The bytes of a payload, as far as their number is recorded.
std::uint64_t payloadLength(const JSONObject& object) {
    const std::string base64 = textIn(object, "dataBase64");
    const std::size_t padding = base64.ends_with("==") ? 2 : base64.ends_with('=') ? 1 : 0;
    return base64.empty() ? static_cast<std::uint64_t>(std::max<std::int64_t>(0, numberIn(object, "dataLength")))
                          : base64.size() / 4 * 3 - padding;
}

double secondsOf(const std::string& time) {
    const auto date = foundation::ISO8601DateFormatter().date(time);
    return date ? date->secondsSince1970 : 0;
}

} // namespace

Report::Report(Reader& reader) : header_(reader.header()), started_(secondsOf(header_.started)) {
    while (const auto entry = reader.next()) {
        if (const auto* const exchange = std::get_if<Exchange>(&*entry))
            take(*exchange, reader.line());
        else if (const auto* const request = std::get_if<KernelRequest>(&*entry))
            take(*request);
        else
            lost_ += std::get<Lost>(*entry).lines;
    }
    cut_ = reader.wasCut();
}

std::string Report::pathOf(const Exchange& exchange) {
    for (const char* const member : {"path", "oldPath"})
        if (std::string path = exchange.text(member); !path.empty())
            return path;
    const auto handle = exchange.number("handle");
    const auto found = handle ? files_.find(*handle) : files_.end();
    return found == files_.end() ? std::string() : found->second;
}

void Report::followHandle(const Exchange& exchange) {
    if (exchange.text("id") == "1")
        files_.clear(); // another helper's numbers
    const JSONValue* const result = exchange.succeeded() ? exchange.answer->find("result") : nullptr;
    if (exchange.op() == "open" && result != nullptr && result->asObject() != nullptr)
        files_[numberIn(*result->asObject(), "handle")] = exchange.text("path");
    else if (exchange.op() == "release")
        files_.erase(exchange.number("handle").value_or(0));
}

void Report::take(const Exchange& exchange, std::uint64_t line) {
    const std::string path = pathOf(exchange);
    const std::string code = exchange.errorCode();
    const std::string error = exchange.succeeded() ? ""
                              : !code.empty()      ? code
                              : exchange.answer    ? "no code"
                                                   : "no answer";
    const std::uint64_t sent = payloadLength(exchange.request);
    const std::uint64_t received = exchange.answer ? payloadLength(*exchange.answer) : 0;
    Tally& tally = exchanges_[exchange.op()];
    tally.durations.add(exchange.took);
    tally.bytes += sent + received;
    TimeLine::Slot& slot = timeLine_.at(exchange.at);
    ++slot.exchanges;
    slot.helper += exchange.took;
    slot.bytes += sent + received;
    PathTally& place = paths_[path];
    ++place.count;
    place.time += exchange.took;
    place.bytes += sent + received;
    if (!error.empty()) {
        ++tally.errors;
        ++slot.errors;
        ++place.errors;
        ErrorTally& kind = errors_[{exchange.op(), error}];
        if (++kind.count == 1)
            kind.path = path;
    }
    written_ += sent;
    read_ += received;
    helperTime_ += exchange.took;
    end_ = std::max(end_, exchange.at + exchange.took);
    keepIfSlow({exchange.at, exchange.took, line, exchange.op(), path, error});
    followHandle(exchange);
}

void Report::keepIfSlow(SlowExchange exchange) {
    if (slowest_.size() == mostShown && slowest_.back().took >= exchange.took)
        return;
    const auto place = std::upper_bound(slowest_.begin(), slowest_.end(), exchange,
                                        [](const auto& a, const auto& b) { return a.took > b.took; });
    slowest_.insert(place, std::move(exchange));
    if (slowest_.size() > mostShown)
        slowest_.pop_back();
}

void Report::take(const KernelRequest& request) {
    const JSONObject& members = request.members;
    const std::string op = textIn(members, "op");
    if (op == "idle" || op == "readahead")
        return; // nobody waited for it
    const std::int64_t took = numberIn(members, "microseconds");
    const double begun = secondsOf(textIn(members, "time"));
    const auto at = static_cast<std::int64_t>(std::llround((begun - started_) * 1e6));
    Tally& tally = requests_[op];
    tally.durations.add(took);
    tally.errors += members.find("errno") != nullptr ? 1 : 0;
    if (begun > 0) {
        ++timeLine_.at(at).requests;
        end_ = std::max(end_, at + took);
    }
    if (const std::string process = textIn(members, "process"); !process.empty())
        ++processes_[process];
    requestTime_ += took;
    const JSONValue* const exchanges = members.find("exchanges");
    if (exchanges == nullptr || exchanges->asArray() == nullptr)
        return;
    std::int64_t asked = 0;
    for (const JSONValue& exchange : *exchanges->asArray())
        if (exchange.asObject() != nullptr)
            asked += numberIn(*exchange.asObject(), "microseconds");
    exchangeTime_ += std::min(asked, took); // the first request has the helper's start beside it
}

namespace {

/// An object or an array in the making.
class Parts {
public:
    Parts& add(const std::string& json) {
        text_.append(text_.empty() ? "" : ",").append(json);
        return *this;
    }

    Parts& add(const char* name, const std::string& json) { return add(jsonString(name) + ":" + json); }

    Parts& text(const char* name, const std::string& value) { return add(name, jsonString(value)); }

    template <typename Number>
    Parts& number(const char* name, Number value) {
        return add(name, std::to_string(value));
    }

    std::string object() const { return "{" + text_ + "}"; }

    std::string array() const { return "[" + text_ + "]"; }

private:
    std::string text_;
};

std::string talliesJSON(const std::map<std::string, Tally>& tallies) {
    Parts all;
    for (const auto& [op, tally] : tallies) {
        const Durations& durations = tally.durations;
        Parts buckets;
        for (std::size_t i = 0; i < Durations::bucketCount; ++i)
            if (durations.buckets()[i] > 0)
                buckets.add("[" + std::to_string(i) + "," + std::to_string(durations.buckets()[i]) + "]");
        all.add(Parts()
                    .text("op", op)
                    .number("count", durations.count())
                    .number("errors", tally.errors)
                    .number("bytes", tally.bytes)
                    .number("sum", durations.sum())
                    .number("p50", durations.quantile(0.5))
                    .number("p90", durations.quantile(0.9))
                    .number("p99", durations.quantile(0.99))
                    .number("max", durations.longest())
                    .add("buckets", buckets.array())
                    .object());
    }
    return all.array();
}

std::string timeLineJSON(const TimeLine& timeLine) {
    Parts slots;
    for (const TimeLine::Slot& slot : timeLine.slots())
        slots.add(Parts()
                      .add(std::to_string(slot.exchanges))
                      .add(std::to_string(slot.requests))
                      .add(std::to_string(slot.errors))
                      .add(std::to_string(slot.helper))
                      .add(std::to_string(slot.bytes))
                      .array());
    return Parts().number("slot", timeLine.slotLength()).add("slots", slots.array()).object();
}

std::string slowestJSON(const std::vector<SlowExchange>& slowest) {
    Parts all;
    for (const SlowExchange& each : slowest)
        all.add(Parts()
                    .number("at", each.at)
                    .number("took", each.took)
                    .number("line", each.line)
                    .text("op", each.op)
                    .text("path", each.path)
                    .text("error", each.error)
                    .object());
    return all.array();
}

/// The entries of a map that come first by `value`, the most first.
template <typename Map, typename Value>
std::vector<typename Map::const_iterator> most(const Map& map, Value value) {
    std::vector<typename Map::const_iterator> all;
    for (auto at = map.begin(); at != map.end(); ++at)
        all.push_back(at);
    const std::size_t count = std::min(all.size(), Report::mostShown);
    std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count), all.end(),
                      [&](const auto& a, const auto& b) { return value(a->second) > value(b->second); });
    all.resize(count);
    return all;
}

std::string pathsJSON(const std::map<std::string, PathTally>& paths) {
    Parts all;
    for (const auto& at : most(paths, [](const PathTally& tally) { return tally.time; }))
        all.add(Parts()
                    .text("path", at->first)
                    .number("count", at->second.count)
                    .number("errors", at->second.errors)
                    .number("bytes", at->second.bytes)
                    .number("time", at->second.time)
                    .object());
    return all.array();
}

} // namespace

std::string Report::json() const {
    Parts errors;
    for (const auto& at : most(errors_, [](const ErrorTally& tally) { return tally.count; }))
        errors.add(Parts()
                       .text("op", at->first.first)
                       .text("code", at->first.second)
                       .number("count", at->second.count)
                       .text("path", at->second.path)
                       .object());
    Parts processes;
    for (const auto& at : most(processes_, [](std::uint64_t count) { return count; }))
        processes.add(Parts().text("process", at->first).number("count", at->second).object());
    return Parts()
        .text("kemvi", header_.kemvi)
        .text("started", header_.started)
        .text("mountPoint", header_.mountPoint)
        .text("payloads", std::string(text(header_.settings.payloads)))
        .text("names", std::string(text(header_.settings.names)))
        .add("cut", cut_ ? "true" : "false")
        .number("lost", lost_)
        .number("duration", end_)
        .number("read", read_)
        .number("written", written_)
        .number("requestTime", requestTime_)
        .number("exchangeTime", exchangeTime_)
        .number("helperTime", helperTime_)
        .number("paths", paths_.size())
        .add("exchanges", talliesJSON(exchanges_))
        .add("requests", talliesJSON(requests_))
        .add("timeLine", timeLineJSON(timeLine_))
        .add("slowest", slowestJSON(slowest_))
        .add("busiest", pathsJSON(paths_))
        .add("errors", errors.array())
        .add("processes", processes.array())
        .object();
}

std::string Report::page(const std::string& title) const {
    // Inside a script element only "</" and "<!--" mean anything; JSON may as well have the character by its number.
    std::string data;
    for (const char c : json())
        data.append(c == '<' ? "\\u003c" : std::string(1, c));
    std::string shown;
    for (const char c : title)
        shown.append(c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c));
    return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
           "content=\"width=device-width, initial-scale=1\">\n<meta name=\"color-scheme\" content=\"light "
           "dark\">\n<title>" +
           shown + "</title>\n<!--\n" + std::string(reportParts::plotLicence) + "-->\n<style>\n" +
           std::string(reportParts::plotStyle) + std::string(reportParts::style) + "</style>\n</head>\n<body>\n<h1>" +
           shown +
           "</h1>\n<main id=\"report\"></main>\n<noscript>This page draws itself with JavaScript.</noscript>\n" +
           "<script>\n" + std::string(reportParts::plotScript) +
           "</script>\n<script type=\"application/json\" id=\"data\">" + data + "</script>\n<script>\n" +
           std::string(reportParts::script) + "</script>\n</body>\n</html>\n";
}

} // namespace recording
