#include "foundation/RealPath.h"

#include <cstdlib>
#include <memory>

namespace foundation {

std::optional<std::string> realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

bool isWithin(std::string_view path, std::string_view directory) {
    return path == directory || directory == "/" ||
           (path.starts_with(directory) && path.substr(directory.size()).starts_with('/'));
}

} // namespace foundation
