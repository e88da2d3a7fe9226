#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace foundation::base64 {

/// Index of a backslash among the bytes that `escapes` chooses from.
inline constexpr std::uint8_t backslashIndex = 8;

/// For each set of slashes among eight characters, the table look-up that escapes them: which of the characters, or
/// the backslash behind them, goes to which place.
inline constexpr auto escapes = [] {
    std::array<std::array<std::uint8_t, 16>, 256> table{};
    for (std::size_t slashes = 0; slashes < table.size(); ++slashes) {
        std::size_t to = 0;
        for (std::uint8_t from = 0; from < backslashIndex; ++from) {
            if (slashes >> from & 1)
                table[slashes][to++] = backslashIndex;
            table[slashes][to++] = from;
        }
    }
    return table;
}();

} // namespace foundation::base64
