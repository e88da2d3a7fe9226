#include "cli/OwnProgram.h"

#include "foundation/RealPath.h"

#include <cstdint>
#include <mach-o/dyld.h>
#include <string>

namespace cli {

std::optional<std::filesystem::path> ownProgram() {
    std::string path(1024, '\0');
    auto size = static_cast<std::uint32_t>(path.size());
    if (::_NSGetExecutablePath(path.data(), &size) != 0) {
        path.resize(size); // which it has told meanwhile
        if (::_NSGetExecutablePath(path.data(), &size) != 0)
            return std::nullopt;
    }
    const auto real = foundation::realPath(path.c_str());
    return real ? std::optional<std::filesystem::path>(*real) : std::nullopt;
}

} // namespace cli
