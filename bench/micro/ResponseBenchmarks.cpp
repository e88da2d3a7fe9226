// What it costs to read each kind of answer line, up to the record that the volume works with.
#include "foundation/Base64.h"
#include "helper/HelperRecords.h"
#include "helper/HelperResponse.h"
#include "helper/ListingReader.h"
#include "helper/StatReader.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace {

using foundation::ByteBuffer;
using foundation::JSONReader;
using kemvi::HelperResponse;

std::shared_ptr<const ByteBuffer> line(const std::string& text) {
    auto buffer = std::make_shared<ByteBuffer>();
    buffer->append(text);
    return buffer;
}

std::string statText(const std::string& path) {
    return R"({"path":")" + path + R"(","name":")" + path.substr(path.rfind('/') + 1) +
           R"(","isDirectory":false,"size":52417,"modifiedAt":"2024-05-01T12:34:56.789Z"})";
}

// `use` decodes the line as the operation does.
template <typename Use>
void measure(benchmark::State& state, const std::string& text, Use&& use) {
    foundation::JSONReader reader;
    const auto answer = line(text);
    for (auto _ : state)
        use(answer, reader);
}

using Line = std::shared_ptr<const ByteBuffer>;

void decodePing(benchmark::State& state) {
    measure(state, R"({"id":"123456","ok":true})", [](const Line& answer, JSONReader& reader) {
        benchmark::DoNotOptimize(HelperResponse::decode(answer, reader).ok);
    });
}

void decodeGetattr(benchmark::State& state) {
    measure(state,
            R"({"id":"123456","ok":true,"result":)" + statText("/sources/library/module/implementation.cpp") + "}",
            [](const Line& answer, JSONReader& reader) {
                kemvi::StatReader stat;
                HelperResponse::decode(answer, reader, [&](foundation::JSONElement& result) { stat.read(result); });
                benchmark::DoNotOptimize(std::move(stat).stat());
            });
}

void decodeTree(benchmark::State& state) {
    measure(state, R"({"id":"123456","ok":true,"result":{"files":4711,"directories":12,"bytes":123456789}})",
            [](const Line& answer, JSONReader& reader) {
                benchmark::DoNotOptimize(kemvi::KemviStatFS(HelperResponse::decode(answer, reader).result));
            });
}

void decodeFailure(benchmark::State& state) {
    const std::string text = R"({"id":"123456","ok":false,"error":{"message":"no such file: /a","code":"ENOENT"}})";
    measure(state, text, [](const Line& answer, JSONReader& reader) {
        benchmark::DoNotOptimize(HelperResponse::decode(answer, reader).error.value().posixError());
    });
}

void decodeRead(benchmark::State& state) {
    const std::vector<std::byte> data(static_cast<std::size_t>(state.range(0)), std::byte{0x5A});
    std::string encoded(foundation::base64::escapedRoom(data.size()), '\0');
    encoded.resize(foundation::base64::encodeEscapingSlashes(data, encoded.data()));
    std::vector<std::byte> into(data.size());
    measure(state, R"({"id":"123456","ok":true,"dataBase64":")" + encoded + R"("})",
            [&](const Line& answer, JSONReader& reader) {
                const HelperResponse response = HelperResponse::decodeTrustingBase64(answer, reader);
                benchmark::DoNotOptimize(foundation::base64::decode(response.dataBase64.value().text, into));
            });
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void decodeReaddir(benchmark::State& state) {
    std::string text = R"({"id":"123456","ok":true,"result":[)";
    for (std::int64_t i = 0; i < state.range(0); ++i)
        text.append(i > 0 ? "," : "").append(statText("/directory/entry-" + std::to_string(i)));
    measure(state, text + "]}", [](const Line& answer, JSONReader& reader) {
        kemvi::ListingReader listing;
        HelperResponse::decode(answer, reader, [&](foundation::JSONElement& result) { listing.read(result); });
        benchmark::DoNotOptimize(std::move(listing).entries());
    });
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(decodePing);
BENCHMARK(decodeGetattr);
BENCHMARK(decodeTree);
BENCHMARK(decodeFailure);
BENCHMARK(decodeRead)->Arg(4096)->Arg(65536)->Arg(131072)->Arg(1048576);
BENCHMARK(decodeReaddir)->Arg(10)->Arg(1000)->Arg(10000);

} // namespace
