#include "Fuzz.h"

// The first byte chooses the target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::span<const std::uint8_t> input(data + 1, size - 1);
    switch (data[0] % 3) {
    case 0: fuzz::base64(input); break;
    case 1: fuzz::response(input); break;
    default: fuzz::timestamp(input); break;
    }
    return 0;
}
