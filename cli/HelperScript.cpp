#include "cli/HelperScript.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

std::optional<std::string> findShipped(const std::string& name) {
    const auto folder = shippedHelpers();
    if (!folder)
        return std::nullopt;
    std::error_code error;
    const auto shipped = *folder / (name + ".mjs");
    if (filesystem::is_regular_file(shipped, error))
        return shipped.string();
    if (error == std::errc::permission_denied) {
        throw CommandError(ExitCode::helperUnavailable, folder->string(),
                           "you may not read this folder, where the helpers are that ship with Kemvi; install "
                           "Kemvi where you may read it, or name a script of your own with --helper PATH");
    }
    return std::nullopt;
}

} // namespace

std::string helperScript(const std::string& named) {
    std::error_code error;
    std::string path = absolutePath(named);
    if (filesystem::is_regular_file(path, error))
        return path;
    if (named.find('/') == std::string::npos)
        if (auto shipped = findShipped(named))
            return *std::move(shipped);
    throw CommandError(ExitCode::helperUnavailable, named,
                       "there is no such helper; expected the path of a script, or the name of a shipped one such as " +
                           std::string(defaultHelper));
}

std::string shippedHelper(const std::string& name) {
    if (auto shipped = findShipped(name))
        return *std::move(shipped);
    throw CommandError(ExitCode::helperUnavailable, name, "this helper is not installed with the command");
}

namespace {

/// What stands behind "#!", without its folder; of env(1) what that is to run.
std::optional<std::string> namedInterpreter(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) || !line.starts_with("#!"))
        return std::nullopt;
    std::istringstream words(line.substr(2));
    std::string word;
    while (words >> word) {
        word.erase(0, word.rfind('/') + 1);
        if (word != "env" && !word.starts_with('-'))
            return word;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> foreignInterpreter(const std::string& path) {
    if (const auto named = namedInterpreter(path))
        return named->starts_with("node") ? std::nullopt : named;
    constexpr std::array<std::pair<std::string_view, const char*>, 8> known = {{{".py", "python3"},
                                                                                {".rb", "ruby"},
                                                                                {".pl", "perl"},
                                                                                {".sh", "sh"},
                                                                                {".bash", "bash"},
                                                                                {".lua", "lua"},
                                                                                {".php", "php"},
                                                                                {".tcl", "tclsh"}}};
    const std::string extension = filesystem::path(path).extension().string();
    for (const auto& [name, interpreter] : known)
        if (extension == name)
            return interpreter;
    return std::nullopt;
}

bool isProgram(const std::string& path) {
    // ELF, and Mach-O for one processor and for several.
    constexpr std::array<std::string_view, 3> beginnings = {"\x7f"
                                                            "ELF",
                                                            "\xCF\xFA\xED\xFE", "\xCA\xFE\xBA\xBE"};
    std::ifstream file(path, std::ios::binary);
    std::array<char, 4> begin{};
    file.read(begin.data(), begin.size());
    return file && std::find(beginnings.begin(), beginnings.end(), std::string_view(begin.data(), begin.size())) !=
                       beginnings.end();
}

} // namespace cli
