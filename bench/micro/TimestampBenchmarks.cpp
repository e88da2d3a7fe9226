#include "foundation/ISO8601.h"

#include <benchmark/benchmark.h>

namespace {

void timestampRead(benchmark::State& state) {
    const foundation::ISO8601DateFormatter formatter;
    std::string_view text = "2024-05-01T12:34:56.789Z";
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(formatter.date(text));
    }
}

void timestampWrite(benchmark::State& state) {
    const foundation::ISO8601DateFormatter formatter;
    foundation::Date date{1714566896.789};
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        benchmark::DoNotOptimize(formatter.string(date));
    }
}

BENCHMARK(timestampRead);
BENCHMARK(timestampWrite);

} // namespace
