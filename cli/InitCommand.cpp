#include "cli/InitCommand.h"

#include "cli/CommandError.h"
#include "cli/HelperScript.h"
#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "foundation/Descriptor.h"
#include "foundation/JSONWriter.h"
#include "foundation/Utf8.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

struct Request {
    std::string source;
    std::string helper;
    std::string driveId;
    std::string home;
    std::string repoRoot;
    bool native = false;
    bool force = false;
};

constexpr const char* programRunner = "program"; // the shipped helper that runs what helperCommand names

/// What serves the tree: a script for node, and the command that this script runs where the helper is a program.
struct Helper {
    std::string script;
    std::vector<std::string> command;
};

Helper chosenHelper(const Request& request) {
    if (request.native) {
        const auto program = shippedProgram("kemvi-local");
        if (!program)
            throw CommandError(ExitCode::helperUnavailable, "kemvi-local", "is not installed beside this command");
        return {helperScript(programRunner), {program->string()}};
    }
    std::string path = helperScript(request.helper.empty() ? std::string(defaultHelper) : request.helper);
    if (isProgram(path))
        return {helperScript(programRunner), {std::move(path)}};
    return {std::move(path), {}};
}

/// Where the helper may keep what it wants to keep. Made by the helper when it first needs it.
std::string defaultHome() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && filesystem::path(data).is_absolute())
        return (filesystem::path(data) / "kemvi").string();
    const char* home = std::getenv("HOME");
    const bool usable = home != nullptr && filesystem::path(home).is_absolute();
    return usable ? (filesystem::path(home) / ".local/share/kemvi").string() : "/var/lib/kemvi";
}

using Entry = std::pair<const char*, std::string>;

std::array<Entry, 4> configuration(const Request& request, const std::string& source, const Helper& helper) {
    return {Entry{"driveId", request.driveId.empty() ? filesystem::path(source).filename().string() : request.driveId},
            Entry{"kemviHome", request.home.empty() ? defaultHome() : absolutePath(request.home)},
            Entry{"repoRoot", request.repoRoot.empty() ? source : absolutePath(request.repoRoot)},
            Entry{"helperPath", helper.script}};
}

std::string jsonText(const std::string& value) {
    if (!foundation::isValidUtf8(value))
        throw CommandError(ExitCode::usage, value, "is not UTF-8, so it cannot stand in a mount configuration");
    return foundation::jsonString(value);
}

std::string jsonText(const std::array<Entry, 4>& entries, const std::vector<std::string>& command) {
    std::string text;
    for (const auto& [key, value] : entries)
        text += (text.empty() ? "{\n  " : ",\n  ") + foundation::jsonString(key) + ": " + jsonText(value);
    std::string parts;
    for (const std::string& part : command)
        parts += (parts.empty() ? "" : ", ") + jsonText(part);
    if (!parts.empty())
        text += ",\n  \"helperCommand\": [" + parts + "]";
    return text + "\n}\n";
}

[[noreturn]] void refuseWriting(const std::string& path) {
    throw CommandError(ExitCode::configuration, path,
                       errno == EEXIST ? std::string("exists already; replace it with --force")
                                       : "cannot be written: " + errnoText(errno));
}

enum class Existing { kept, replaced };

/// Puts the whole file in place in one step, so that neither a mount nor a crash ever meets half of it.
void writeFile(const std::string& path, const std::string& text, Existing existing) {
    std::string temporary = path + ".XXXXXX";
    foundation::Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen())
        refuseWriting(path);
    ::fchmod(file.number(), 0644);
    const bool written = ::write(file.number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const bool placed = written && file.close() &&
                        (existing == Existing::replaced ? ::rename(temporary.c_str(), path.c_str())
                                                        : ::link(temporary.c_str(), path.c_str())) == 0;
    const int error = errno;
    if (!placed || existing == Existing::kept)
        ::unlink(temporary.c_str());
    if (!placed) {
        errno = error;
        refuseWriting(path);
    }
}

ExitCode run(const Request& request) {
    std::error_code error;
    if (filesystem::exists(request.source, error) && !filesystem::is_directory(request.source, error))
        throw CommandError(ExitCode::configuration, request.source, "is not a directory; give the source directory");
    const Helper helper = chosenHelper(request);
    const auto entries = configuration(request, absolutePath(request.source), helper);
    const std::string text = jsonText(entries, helper.command);
    filesystem::create_directories(request.source, error);
    if (error)
        throw CommandError(ExitCode::configuration, request.source, "cannot be created: " + error.message());
    const std::string path = configurationPath(absolutePath(request.source));
    writeFile(path, text, request.force ? Existing::replaced : Existing::kept);
    std::printf("Wrote %s:\n", escapedControls(path).c_str());
    for (const auto& [key, value] : entries)
        std::printf("  %-10s  %s\n", key, escapedControls(value).c_str());
    for (const std::string& part : helper.command)
        std::printf("  %-10s  %s\n", "which runs", escapedControls(part).c_str());
    if (request.repoRoot.empty())
        std::printf("The source directory itself is served; --repo-root DIR names another.\n");
    const std::string& served = entries[2].second;
    const std::string& program = helper.command.empty() ? helper.script : helper.command.front();
    if (isWithin(realPath(program).value_or(program), realPath(served).value_or(served))) {
        std::printf(
            "The helper lies inside the served directory: who may write there chooses what the next mount runs, "
            "and a mount\nthat covers the helper is refused; --repo-root DIR names another directory.\n");
    }
    std::printf("Next: kemvi mount %s MOUNTPOINT\n", escapedControls(request.source).c_str());
    return ExitCode::success;
}

} // namespace

void addInitCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("init", "Write the mount configuration of a source directory");
    command->add_option("SOURCE", request->source, "Source directory; made if it does not exist")->required();
    CLI::Option* const named =
        command
            ->add_option("--helper", request->helper,
                         "Helper: a script for node, a program, or the name of a shipped one (default: local)")
            ->type_name("PATH");
    command->add_flag("--native", request->native, "Serve the directory with the shipped helper in C++")
        ->excludes(named);
    command->add_option("--drive-id", request->driveId, "Identifier of the drive (default: the directory's name)")
        ->type_name("ID");
    command
        ->add_option("--home", request->home, "Directory for the helper's own files (default: in your data directory)")
        ->type_name("DIR");
    command->add_option("--repo-root", request->repoRoot, "Directory that the helper works on (default: SOURCE)")
        ->type_name("DIR");
    command->add_flag("--force", request->force, "Replace an existing mount-config.json");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
