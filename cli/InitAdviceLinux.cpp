#include "cli/InitAdvice.h"

#include <cstdlib>
#include <filesystem>

namespace cli {

namespace filesystem = std::filesystem;

std::string defaultHome() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && filesystem::path(data).is_absolute())
        return (filesystem::path(data) / "kemvi").string();
    const char* home = std::getenv("HOME");
    const bool usable = home != nullptr && filesystem::path(home).is_absolute();
    return usable ? (filesystem::path(home) / ".local/share/kemvi").string() : "/var/lib/kemvi";
}

std::optional<std::string> remarkOnServing(const std::string&) {
    return std::nullopt;
}

std::string mountCommand(const std::string& source) {
    return "kemvi mount " + source + " MOUNTPOINT";
}

} // namespace cli
