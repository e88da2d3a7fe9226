#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// The real path, if everything on it exists.
std::optional<std::string> realPath(const std::string& path);

/// True if `path` is `directory` or lies beneath it. Both absolute and without ".." or trailing slash.
bool isWithin(std::string_view path, std::string_view directory);

} // namespace foundation
