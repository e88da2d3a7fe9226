// Base64 both ways, with the best form of the loops for this processor and with the portable one.
#include "foundation/Base64.h"
#include "foundation/Base64Kernels.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace {

namespace base64 = foundation::base64;

std::vector<std::byte> randomBytes(std::size_t size) {
    std::mt19937 generator(7);
    std::vector<std::byte> bytes(size);
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>(generator());
    return bytes;
}

std::string withoutEscapes(const std::string& text) {
    std::string plain;
    for (const char c : text)
        if (c != '\\')
            plain += c;
    return plain;
}

std::string encoded(const std::vector<std::byte>& data) {
    std::string text(base64::escapedRoom(data.size()), '\0');
    text.resize(base64::encodeEscapingSlashes(data, text.data()));
    return text;
}

void encode(benchmark::State& state, const base64::Kernels& kernels, const std::vector<std::byte>& data) {
    std::string text(base64::escapedRoom(data.size()), '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(base64::encodeWith(kernels, data, text.data()));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void decode(benchmark::State& state, const base64::Kernels& kernels) {
    auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
    const std::string text = withoutEscapes(encoded(data));
    for (auto _ : state)
        benchmark::DoNotOptimize(base64::decodeWith(kernels, text, data));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

std::vector<std::byte> randomData(const benchmark::State& state) {
    return randomBytes(static_cast<std::size_t>(state.range(0)));
}

// A slash comes at random, in every second block of 32 characters.
void base64EncodeBest(benchmark::State& state) {
    state.SetLabel(base64::bestKernels().name);
    encode(state, base64::bestKernels(), randomData(state));
}

void base64EncodeSlashesOnly(benchmark::State& state) {
    encode(state, base64::bestKernels(), std::vector(static_cast<std::size_t>(state.range(0)), std::byte{0xFF}));
}

void base64EncodeNoSlash(benchmark::State& state) {
    encode(state, base64::bestKernels(), std::vector(static_cast<std::size_t>(state.range(0)), std::byte{0}));
}

void base64EncodePortable(benchmark::State& state) {
    encode(state, base64::scalarKernels, randomData(state));
}

void base64DecodeBest(benchmark::State& state) {
    state.SetLabel(base64::bestKernels().name);
    decode(state, base64::bestKernels());
}

void base64DecodePortable(benchmark::State& state) {
    decode(state, base64::scalarKernels);
}

BENCHMARK(base64EncodeBest)->Arg(4096)->Arg(65536)->Arg(1048576);
BENCHMARK(base64EncodeSlashesOnly)->Arg(65536);
BENCHMARK(base64EncodeNoSlash)->Arg(65536);
BENCHMARK(base64EncodePortable)->Arg(65536);
BENCHMARK(base64DecodeBest)->Arg(4096)->Arg(65536)->Arg(1048576);
BENCHMARK(base64DecodePortable)->Arg(65536);

} // namespace
