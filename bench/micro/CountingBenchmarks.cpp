// What it costs to count: a request of the kernel with the path that is shown while it lasts, and an exchange. Both are
// always counted; an exchange of "getattr" takes some microseconds (kemvi_bench_exchange).
#include "cli/ExchangeMeter.h"
#include "hosts/fuse/monitor/Monitor.h"
#include "hosts/fuse/tree/NodePath.h"

#include <benchmark/benchmark.h>

#include <array>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;

void countRequest(benchmark::State& state) {
    fusehost::NodeTable table;
    fusehost::Node* folder = &table.root();
    for (const char* name : {"sources", "library", "module"})
        folder = &table.childOrNew(*folder, name);
    const fusehost::NodeID id = folder->id;
    const auto monitor = std::make_unique<fusehost::Monitor>();
    std::array<char, fusehost::RequestUnderWay::longestPath + 1> room{};
    const Clock::time_point since = Clock::now(); // the loop asks for this one anyway
    for (auto _ : state) {
        const auto path = fusehost::pathOf(*table.find(id), "implementation.cpp", room);
        monitor->begin({fusehost::KernelOperation::lookup, path, 1234, 1000, since, since});
        monitor->end(Clock::now(), {});
        monitor->setTree({table.size(), 1, 2, 3});
    }
}

void countExchange(benchmark::State& state) {
    const auto meter = std::make_unique<cli::ExchangeMeter>();
    kemvi::ExchangeObserver& observer = *meter;
    kemvi::HelperRequest request;
    request.op = "getattr";
    for (auto _ : state) {
        observer.exchangeBegan(request, {"a line", "", ""});
        observer.answerArrived();
        observer.exchangeEnded(request, {kemvi::ExchangeEnd::Kind::success, {}, "an answer"});
    }
}

BENCHMARK(countRequest);
BENCHMARK(countExchange);

} // namespace
