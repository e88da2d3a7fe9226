#include "cli/stats/MountFigures.h"

#include "foundation/ControlCharacters.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>

namespace cli {

namespace {

using fusehost::LatencyBuckets;
using fusehost::LatencyCounts;
using kemvi::JSONObject;
using kemvi::JSONValue;

double number(const JSONObject& object, std::string_view name) {
    const JSONValue* value = object.find(name);
    return value != nullptr && value->asNumber() != nullptr ? *value->asNumber() : 0;
}

std::string text(const JSONObject& object, std::string_view name) {
    const JSONValue* value = object.find(name);
    return value != nullptr && value->asString() != nullptr ? *value->asString() : std::string();
}

const JSONObject& part(const JSONObject& object, std::string_view name) {
    static const JSONObject none;
    const JSONValue* value = object.find(name);
    return value != nullptr && value->asObject() != nullptr ? *value->asObject() : none;
}

std::uint64_t countOf(double value) {
    constexpr double most = 9e15; // below it doubles tell every whole number
    return value > 0 && value < most ? static_cast<std::uint64_t>(value) : 0;
}

std::chrono::nanoseconds durationOf(double seconds) {
    constexpr double most = 1e9;
    return std::chrono::nanoseconds(std::llround(std::clamp(seconds, 0.0, most) * 1e9));
}

/// One bucket of a histogram: [from, to, count].
void addBucket(LatencyCounts& latency, const JSONValue& bucket) {
    const JSONValue::Array* numbers = bucket.asArray();
    if (numbers == nullptr || numbers->size() != 3)
        return;
    const double* from = numbers->front().asNumber();
    const double* count = numbers->back().asNumber();
    if (from != nullptr && count != nullptr)
        latency.buckets[LatencyBuckets::indexOf(countOf(*from))] += countOf(*count);
}

OperationFigures operationOf(const JSONObject& object) {
    OperationFigures figures;
    figures.operation = foundation::escapedControls(text(object, "op"));
    figures.bytes = countOf(number(object, "bytes"));
    figures.latency.sum = durationOf(number(object, "seconds"));
    figures.latency.longest = durationOf(number(object, "longest"));
    if (const JSONValue* histogram = object.find("histogram"); histogram != nullptr && histogram->asArray() != nullptr)
        for (const JSONValue& bucket : *histogram->asArray())
            addBucket(figures.latency, bucket);
    for (const auto& [name, count] : part(object, "errors").members())
        if (count.asNumber() != nullptr)
            figures.errors[name] = countOf(*count.asNumber());
    return figures;
}

std::vector<OperationFigures> operationsIn(const JSONObject& answer, std::string_view name) {
    std::vector<OperationFigures> all;
    const JSONValue* list = answer.find(name);
    if (list != nullptr && list->asArray() != nullptr)
        for (const JSONValue& value : *list->asArray())
            if (const JSONObject* object = value.asObject())
                all.push_back(operationOf(*object));
    return all;
}

OperationFigures difference(OperationFigures now, const OperationFigures& earlier) {
    const auto less = [](std::uint64_t a, std::uint64_t b) { return a > b ? a - b : 0; };
    for (std::size_t i = 0; i < now.latency.buckets.size(); ++i)
        now.latency.buckets[i] = less(now.latency.buckets[i], earlier.latency.buckets[i]);
    now.latency.sum -= std::min(now.latency.sum, earlier.latency.sum);
    now.bytes = less(now.bytes, earlier.bytes);
    for (auto& [name, count] : now.errors)
        if (const auto known = earlier.errors.find(name); known != earlier.errors.end())
            count = less(count, known->second);
    std::erase_if(now.errors, [](const auto& error) { return error.second == 0; });
    return now;
}

std::vector<OperationFigures> differences(std::vector<OperationFigures> now,
                                          const std::vector<OperationFigures>& earlier) {
    for (OperationFigures& figures : now) {
        const auto known = std::find_if(earlier.begin(), earlier.end(), [&](const OperationFigures& other) {
            return other.operation == figures.operation;
        });
        if (known != earlier.end())
            figures = difference(std::move(figures), *known);
    }
    std::erase_if(now, [](const OperationFigures& figures) { return figures.latency.count() == 0; });
    return now;
}

} // namespace

MountFigures MountFigures::of(const JSONObject& answer) {
    MountFigures figures;
    figures.version = text(answer, "version");
    figures.source = text(answer, "source");
    figures.mountPoint = text(answer, "mountPoint");
    figures.seconds = number(answer, "seconds");
    figures.kernel = operationsIn(answer, "kernel");
    figures.exchanges = operationsIn(answer, "exchanges");
    const JSONObject& time = part(answer, "time");
    figures.requestSeconds = number(time, "requests");
    figures.waitingSeconds = number(time, "waiting");
    figures.helperSeconds = number(time, "helper");
    const JSONObject& bytes = part(answer, "bytes");
    figures.bytesRead = number(bytes, "read");
    figures.bytesWritten = number(bytes, "written");
    figures.bytesSent = number(bytes, "sent");
    figures.bytesReceived = number(bytes, "received");
    const JSONObject& gauges = part(answer, "gauges");
    figures.nodes = number(gauges, "nodes");
    figures.openFiles = number(gauges, "openFiles");
    figures.helperHandles = number(gauges, "helperHandles");
    figures.hiddenFiles = number(gauges, "hiddenFiles");
    figures.waitingRequests = number(gauges, "waitingRequests");
    figures.currentExchangeSeconds = number(gauges, "currentExchangeSeconds");
    figures.helperRestarts = number(gauges, "helperRestarts");
    const JSONValue* up = gauges.find("helperUp");
    figures.helperUp = up != nullptr && up->asBool() != nullptr && *up->asBool();
    const JSONObject& memory = part(answer, "memory");
    figures.hostBytes = number(memory, "host");
    if (memory.find("helper") != nullptr)
        figures.helperBytes = number(memory, "helper");
    return figures;
}

MountFigures MountFigures::since(const MountFigures& earlier) const {
    MountFigures passed = *this;
    passed.seconds -= earlier.seconds;
    passed.kernel = differences(kernel, earlier.kernel);
    passed.exchanges = differences(exchanges, earlier.exchanges);
    passed.requestSeconds -= earlier.requestSeconds;
    passed.waitingSeconds -= earlier.waitingSeconds;
    passed.helperSeconds -= earlier.helperSeconds;
    passed.bytesRead -= earlier.bytesRead;
    passed.bytesWritten -= earlier.bytesWritten;
    passed.bytesSent -= earlier.bytesSent;
    passed.bytesReceived -= earlier.bytesReceived;
    return passed;
}

} // namespace cli
