#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace fuzz {

using Input = std::span<const std::uint8_t>;

/// Code that takes bytes from elsewhere, with the rules that hold for all of them. `run` ends the process if one is
/// broken. Its seeds lie in seeds/NAME, the words of its language in dictionaries/NAME.dict.
struct Target {
    std::string_view name;
    void (*run)(Input);
    int rounds; // inputs of the short run that belongs to every test run
};

std::span<const Target> targets();

void run(const Target& target, Input input);

// The targets
void base64(Input input);
/// Lines as a helper in C++ reads them.
void helperRequests(Input input);
void mountConfig(Input input);
void mountOptions(Input input);
/// Sequences of kernel requests; see RequestScript.h.
void requests(Input input);
void responses(Input input);
void results(Input input);
void timestamps(Input input);

// For targets
/// Unless `holds`, says which rule was broken by which input, and ends the process.
void require(bool holds, const char* rule);

inline std::string_view textOf(Input input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

} // namespace fuzz
