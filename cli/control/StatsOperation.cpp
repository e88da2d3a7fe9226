#include "cli/control/StatsOperation.h"

#include "cli/ErrnoName.h"
#include "cli/ResidentMemory.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <unistd.h>
#include <vector>

namespace cli {

namespace {

using control::Members;
using fusehost::LatencyBuckets;
using fusehost::LatencyCounts;
using Clock = std::chrono::steady_clock;

double seconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

/// Buckets that have something in them, as [from, to, count]; the bounds in nanoseconds.
std::string histogramOf(const LatencyCounts& latency) {
    std::string json = "[";
    for (std::size_t i = 0; i < latency.buckets.size(); ++i) {
        if (latency.buckets[i] == 0)
            continue;
        json += json.size() > 1 ? ",[" : "[";
        json += std::to_string(LatencyBuckets::lowerBound(i)) + "," +
                std::to_string(LatencyBuckets::lowerBound(i + 1)) + "," + std::to_string(latency.buckets[i]) + "]";
    }
    return json + "]";
}

void addLatency(Members& members, const LatencyCounts& latency) {
    constexpr double half = 0.5;
    constexpr double most = 0.9;
    constexpr double nearlyAll = 0.99;
    members.add("count", latency.count())
        .add("seconds", seconds(latency.sum))
        .add("p50", seconds(latency.quantile(half)))
        .add("p90", seconds(latency.quantile(most)))
        .add("p99", seconds(latency.quantile(nearlyAll)))
        .add("longest", seconds(latency.longest));
}

std::vector<Members> kernelRequests(const fusehost::MonitorCounts& counts) {
    std::vector<Members> requests;
    for (const auto& counted : counts.operations) {
        Members errors;
        for (const auto& [number, count] : counted.errors)
            errors.add(errnoName(number), count);
        Members& members = requests.emplace_back();
        members.add("op", fusehost::nameOf(counted.operation));
        addLatency(members, counted.latency);
        members.add("bytes", counted.bytes).add("errors", errors).addJSON("histogram", histogramOf(counted.latency));
    }
    return requests;
}

std::vector<Members> exchangesOf(const MeteredExchanges& metered) {
    std::vector<Members> exchanges;
    for (const ExchangeCounts& counted : metered.operations) {
        Members errors;
        for (const auto& [code, count] : counted.errors)
            errors.add(code, count);
        Members& members = exchanges.emplace_back();
        members.add("op", counted.operation);
        addLatency(members, counted.latency);
        members.add("errors", errors).addJSON("histogram", histogramOf(counted.latency));
    }
    return exchanges;
}

std::uint64_t bytesOf(const fusehost::MonitorCounts& counts, fusehost::KernelOperation operation) {
    for (const auto& counted : counts.operations)
        if (counted.operation == operation)
            return counted.bytes;
    return 0;
}

/// What requests took in all, and which of it was theirs to wait for one another, or the helper's. Idle work is next to
/// nothing but the exchanges that it makes.
Members timeOf(const fusehost::MonitorCounts& counts, const MeteredExchanges& metered) {
    std::chrono::nanoseconds requests{0};
    for (const auto& counted : counts.operations)
        requests += counted.latency.sum;
    return Members()
        .add("requests", seconds(requests))
        .add("waiting", seconds(counts.waited))
        .add("helper", seconds(std::max(metered.time() - counts.idleWork, std::chrono::nanoseconds(0))));
}

Members gaugesOf(const StatsSources& sources, const fusehost::MonitorCounts& counts, const MeteredExchanges& metered) {
    const auto exchange = sources.exchanges.underWay();
    return Members()
        .add("nodes", std::uint64_t{counts.tree.nodes})
        .add("openFiles", std::uint64_t{counts.tree.openFiles})
        .add("helperHandles", std::uint64_t{metered.openHandles})
        .add("hiddenFiles", std::uint64_t{counts.tree.hiddenFiles})
        .add("waitingRequests", std::uint64_t{counts.waiting})
        .add("currentExchangeSeconds", exchange ? seconds(Clock::now() - exchange->since) : 0.0)
        .add("helperUp", !sources.supervisor.hasEnded() && !sources.supervisor.isRestarting())
        .add("helperRestarts", std::uint64_t{sources.helpers.restarts()});
}

Members memoryOf(const StatsSources& sources) {
    Members memory;
    memory.add("host", residentBytes(::getpid()).value_or(0));
    if (const auto helper = sources.helpers.pid(); helper && !sources.helpers.ended())
        if (const auto bytes = residentBytes(*helper))
            memory.add("helper", *bytes);
    return memory;
}

Members figuresOf(const StatsSources& sources, Clock::time_point start) {
    const fusehost::MonitorCounts counts = sources.monitor.read();
    const MeteredExchanges metered = sources.exchanges.read();
    return Members()
        .add("version", KEMVI_VERSION)
        .add("source", sources.plan.source)
        .add("mountPoint", sources.plan.mountPoint)
        .add("seconds", seconds(Clock::now() - start))
        .add("kernel", kernelRequests(counts))
        .add("exchanges", exchangesOf(metered))
        .add("time", timeOf(counts, metered))
        .add("bytes", Members()
                          .add("read", bytesOf(counts, fusehost::KernelOperation::read))
                          .add("written", bytesOf(counts, fusehost::KernelOperation::write))
                          .add("sent", metered.bytesSent)
                          .add("received", metered.bytesReceived))
        .add("gauges", gaugesOf(sources, counts, metered))
        .add("memory", memoryOf(sources));
}

} // namespace

void addStatsOperation(control::ControlServer& server, const StatsSources& sources) {
    server.handle("stats", {}, [sources, start = Clock::now()](const control::Request&, control::Reply& reply) {
        reply.succeed(figuresOf(sources, start));
    });
}

} // namespace cli
