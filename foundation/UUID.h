#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace foundation {

/// A 128-bit universally unique identifier.
struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    /// A freshly generated random (version 4) identifier.
    static UUID random();

    /// The usual upper-case text with dashes, 36 characters.
    std::string uuidString() const;

    friend bool operator==(const UUID&, const UUID&) = default;
};

} // namespace foundation
