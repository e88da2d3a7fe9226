#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli::check {

constexpr std::size_t longestShown = 300; // bytes of a line that are shown to people

/// A line as people are shown it: control characters escaped, and cut off, with its length, where it is too long.
/// `line` may hold only the start of one that is `length` bytes long.
std::string shownLine(std::string_view line, std::size_t length);

inline std::string shownLine(std::string_view line) {
    return shownLine(line, line.size());
}

} // namespace cli::check
