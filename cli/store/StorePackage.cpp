#include "cli/store/StorePackage.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"
#include "cli/ProgramOutput.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

constexpr const char* packageName = "kemvi-helper-store";
constexpr std::chrono::seconds npmLimit(10);

filesystem::path scriptOf(const filesystem::path& package) {
    return package / "helpers" / "store.mjs";
}

bool isThere(const filesystem::path& package) {
    std::error_code error;
    return filesystem::is_regular_file(scriptOf(package), error);
}

/// One library stands for all: npm installs them together, and cleans up what it cannot end.
bool hasLibraries(const filesystem::path& package) {
    std::error_code error;
    return filesystem::is_directory(package / "node_modules" / "postgres", error);
}

/// The kit of the shipped helpers is the folder `share/kemvi` of an installation, and `node` among the sources' kits.
std::optional<filesystem::path> besideTheKit() {
    const auto helpers = shippedHelpers();
    if (!helpers)
        return std::nullopt;
    const filesystem::path kit = helpers->parent_path();
    for (const auto& package : {kit / "store", kit.parent_path() / "store"})
        if (isThere(package))
            return package;
    return std::nullopt;
}

std::optional<filesystem::path> installedForAll() {
    const auto npm = findInPath("npm");
    if (!npm)
        return std::nullopt;
    std::string root = programOutput({*npm, "root", "--global"}, npmLimit).value_or("");
    root.erase(root.find_last_not_of(" \r\n") + 1);
    const filesystem::path package = filesystem::path(root) / packageName;
    return package.is_absolute() && isThere(package) ? std::optional(package) : std::nullopt;
}

[[noreturn]] void refuseMissing() {
    std::error_code error;
    const auto helpers = shippedHelpers();
    const auto archive = helpers ? helpers->parent_path() / (std::string(packageName) + ".tgz") : filesystem::path();
    if (!filesystem::is_regular_file(archive, error))
        throw CommandError(ExitCode::helperUnavailable, packageName, "this package is not installed with the command");
    throw CommandError(ExitCode::helperUnavailable, packageName,
                       std::string("is not installed; run: ") + (findInPath("npm") ? "" : "apt install npm && ") +
                           "npm install --global " + archive.string());
}

} // namespace

std::string storeHelper() {
    const auto beside = besideTheKit();
    if (beside && hasLibraries(*beside))
        return scriptOf(*beside).string();
    const auto global = installedForAll();
    if (global && hasLibraries(*global))
        return scriptOf(*global).string();
    if (beside)
        throw CommandError(ExitCode::helperUnavailable, beside->string(),
                           "the libraries of this package are not installed; run: npm --prefix " + beside->string() +
                               " ci");
    refuseMissing();
}

} // namespace cli
