#pragma once

#include <filesystem>
#include <optional>

namespace cli {

/// The path of this program, if the system tells. Links are followed.
std::optional<std::filesystem::path> ownProgram();

} // namespace cli
