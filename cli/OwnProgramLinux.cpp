#include "cli/OwnProgram.h"

#include <system_error>

namespace cli {

std::optional<std::filesystem::path> ownProgram() {
    std::error_code error;
    auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::nullopt : std::optional(std::move(program));
}

} // namespace cli
