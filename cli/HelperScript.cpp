#include "cli/HelperScript.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace cli {

namespace filesystem = std::filesystem;

std::string helperScript(const std::string& named) {
    std::error_code error;
    std::string path = absolutePath(named);
    if (filesystem::is_regular_file(path, error))
        return path;
    if (named.find('/') == std::string::npos) {
        if (const auto folder = shippedHelpers()) {
            const auto shipped = *folder / (named + ".mjs");
            if (filesystem::is_regular_file(shipped, error))
                return shipped.string();
            if (error == std::errc::permission_denied) {
                throw CommandError(ExitCode::helperUnavailable, folder->string(),
                                   "you may not read this folder, where the helpers are that ship with Kemvi; install "
                                   "Kemvi where you may read it, or name a script of your own with --helper PATH");
            }
        }
    }
    throw CommandError(ExitCode::helperUnavailable, named,
                       "there is no such helper; expected the path of a script, or the name of a shipped one such as " +
                           std::string(defaultHelper));
}

bool isProgram(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, 4> begin{};
    file.read(begin.data(), begin.size());
    return file && std::string_view(begin.data(), begin.size()) == "\x7f"
                                                                   "ELF";
}

} // namespace cli
