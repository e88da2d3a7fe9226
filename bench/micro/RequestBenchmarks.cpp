// What it costs to put a request line together; a write's payload is encoded before and only referred to here.
#include "helper/HelperRequest.h"

#include <benchmark/benchmark.h>

namespace {

using kemvi::HelperRequest;

HelperRequest request(const char* op) {
    HelperRequest made;
    made.id = "123456";
    made.op = op;
    return made;
}

void measure(benchmark::State& state, const HelperRequest& made) {
    kemvi::HelperRequestEncoder encoder;
    for (auto _ : state)
        benchmark::DoNotOptimize(encoder.encode(made));
}

void encodePing(benchmark::State& state) {
    measure(state, request("ping"));
}

void encodeGetattr(benchmark::State& state) {
    HelperRequest made = request("getattr");
    made.path = "/sources/library/module/implementation.cpp";
    measure(state, made);
}

void encodeGetattrUnicode(benchmark::State& state) {
    HelperRequest made = request("getattr");
    made.path = "/B\xC3\xBC"
                "cher/\xE6\x9C\xAC\xE6\xA3\x9A/a \"quoted\" name\n.txt";
    measure(state, made);
}

void encodeOpen(benchmark::State& state) {
    HelperRequest made = request("open");
    made.path = "/sources/library/module/implementation.cpp";
    made.flags = {{"write", "create", "truncate"}};
    measure(state, made);
}

void encodeRead(benchmark::State& state) {
    HelperRequest made = request("read");
    made.handle = 17;
    made.offset = 1048576;
    made.length = 65536;
    measure(state, made);
}

void encodeWriteEnvelope(benchmark::State& state) {
    HelperRequest made = request("write");
    made.handle = 17;
    made.offset = 1048576;
    made.dataBase64 = "AAAA";
    measure(state, made);
}

BENCHMARK(encodePing);
BENCHMARK(encodeGetattr);
BENCHMARK(encodeGetattrUnicode);
BENCHMARK(encodeOpen);
BENCHMARK(encodeRead);
BENCHMARK(encodeWriteEnvelope);

} // namespace
