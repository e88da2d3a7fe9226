#include "Fuzz.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

const fuzz::Target& chosen() {
    const char* name = std::getenv("FUZZ_TARGET");
    for (const fuzz::Target& target : fuzz::targets())
        if (name != nullptr && target.name == name)
            return target;
    std::fputs("set FUZZ_TARGET to one of:", stderr);
    for (const fuzz::Target& target : fuzz::targets())
        std::fprintf(stderr, " %s", target.name.data());
    std::fputs("\n", stderr);
    std::exit(2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::Target& target = chosen();
    fuzz::run(target, {data, size});
    return 0;
}
