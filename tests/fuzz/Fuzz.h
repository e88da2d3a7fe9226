#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

/// Each feeds one input to the code of its name and aborts if a rule is broken.
void base64(std::span<const std::uint8_t> input);
void response(std::span<const std::uint8_t> input);
void timestamp(std::span<const std::uint8_t> input);

} // namespace fuzz
