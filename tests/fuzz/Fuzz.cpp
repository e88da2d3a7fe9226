#include "Fuzz.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace fuzz {
namespace {

Input current; // what is being run

} // namespace

std::span<const Target> targets() {
    static constexpr std::array<Target, 8> all = {{
        {"base64", base64, 20'000},
        {"helperRequests", helperRequests, 20'000},
        {"mountConfig", mountConfig, 5'000},
        {"mountOptions", mountOptions, 5'000},
        {"requests", requests, 1'000},
        {"responses", responses, 20'000},
        {"results", results, 5'000},
        {"timestamps", timestamps, 20'000},
    }};
    return all;
}

void run(const Target& target, Input input) {
    current = input;
    target.run(input);
}

void require(bool holds, const char* rule) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\ninput: ", rule);
    for (const std::uint8_t byte : current)
        std::fprintf(stderr, byte >= 0x20 && byte < 0x7f && byte != '\\' ? "%c" : "\\x%02x", byte);
    std::fputs("\n", stderr);
    std::abort();
}

} // namespace fuzz
