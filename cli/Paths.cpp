#include "cli/Paths.h"

#include "cli/OwnProgram.h"

#include <cstdlib>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace filesystem = std::filesystem;

std::string absolutePath(const std::string& path) {
    std::string absolute = filesystem::absolute(path).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    return absolute;
}

std::optional<std::string> realParentPath(const std::string& path) {
    // ".." is left to realpath, which follows links as the kernel does; only as the last component it is taken as text.
    filesystem::path absolute = filesystem::absolute(path);
    while (absolute.has_relative_path() && (absolute.filename().empty() || absolute.filename() == "."))
        absolute = absolute.parent_path();
    if (absolute.filename() == "..")
        absolute = absolutePath(path);
    const auto parent = realPath(absolute.parent_path().string());
    if (!parent)
        return std::nullopt;
    return (filesystem::path(*parent) / absolute.filename()).string();
}

std::optional<std::string> findInPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string_view rest = path != nullptr ? path : "/usr/bin:/bin";
    for (;;) {
        const auto end = rest.find(':');
        const auto folder = rest.substr(0, end);
        std::string candidate = (folder.empty() ? "." : std::string(folder)) + "/" + program;
        std::error_code ignored;
        if (filesystem::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0)
            return candidate;
        if (end == std::string_view::npos)
            return std::nullopt;
        rest.remove_prefix(end + 1);
    }
}

namespace {

/// The folder in which this program lies, if the system tells.
std::optional<filesystem::path> ownFolder() {
    const auto program = ownProgram();
    return program ? std::optional(program->parent_path()) : std::nullopt;
}

} // namespace

std::optional<filesystem::path> shippedHelpers() {
    std::error_code error;
    const auto own = ownFolder();
    if (!own)
        return std::nullopt;
    const auto prefix = own->parent_path();
    for (const auto& folder : {prefix / KEMVI_INSTALLED_HELPERS, filesystem::path(KEMVI_SOURCE_HELPERS)})
        if (filesystem::is_directory(folder, error) || error == std::errc::permission_denied)
            return folder.lexically_normal();
    return std::nullopt;
}

std::optional<filesystem::path> shippedProgram(const std::string& name) {
    std::error_code error;
    if (const auto own = ownFolder())
        for (const auto& folder : {own->parent_path() / KEMVI_INSTALLED_PROGRAMS, *own})
            if (filesystem::is_regular_file(folder / name, error))
                return folder / name;
    return std::nullopt;
}

} // namespace cli
