#include "cli/InitCommand.h"

#include "cli/CommandError.h"
#include "cli/HelperCommand.h"
#include "cli/HelperScript.h"
#include "cli/HelperSettings.h"
#include "cli/InitAdvice.h"
#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "cli/store/StoreAddress.h"
#include "cli/store/StorePackage.h"
#include "foundation/Descriptor.h"
#include "foundation/JSONWriter.h"
#include "foundation/Utf8.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
    std::string command;
    std::vector<std::string> settings; // NAME=VALUE
    std::string driveId;
    std::string home;
    std::string repoRoot;
    StoreRequest store;
    bool native = false;
    bool force = false;
};

constexpr const char* programRunner = "program"; // the shipped helper that runs what helperCommand names

/// What serves the tree: a script for node, and the command that this script runs where the helper is a program.
struct Helper {
    std::string script;
    std::vector<std::string> command;
    std::vector<std::string> mountOptions = {}; // that its tree needs
};

/// What other machines have closed is to be seen by whoever opens it; an embedded store has no other machine.
Helper helperOfAStore(const std::string& store) {
    return {storeHelper(),
            {},
            embeddedFolder(store).empty() ? std::vector<std::string>{"close_to_open"} : std::vector<std::string>()};
}

Helper chosenHelper(const Request& request) {
    if (!request.store.store.empty())
        return helperOfAStore(request.store.store);
    if (request.native) {
        const auto program = shippedProgram("kemvi-local");
        if (!program)
            throw CommandError(ExitCode::helperUnavailable, "kemvi-local", "is not installed beside this command");
        return {shippedHelper(programRunner), {program->string()}};
    }
    if (!request.command.empty())
        return {shippedHelper(programRunner), absoluteCommand(commandWords(request.command))};
    std::string path = helperScript(request.helper.empty() ? std::string(defaultHelper) : request.helper);
    if (isProgram(path))
        return {shippedHelper(programRunner), {std::move(path)}};
    if (const auto interpreter = foreignInterpreter(path)) {
        if (::access(path.c_str(), X_OK) == 0)
            return {shippedHelper(programRunner), {std::move(path)}};
        throw CommandError(ExitCode::usage, "--helper " + request.helper,
                           "is no script for node; use --command '" + *interpreter + " " +
                               commandText({request.helper}) + "'");
    }
    return {std::move(path), {}};
}

using Entry = std::pair<const char*, std::string>;

/// The directory that the helper works on: of a store that is embedded its folder, of one on a server none.
std::string workedOn(const Request& request, const std::string& source) {
    if (!request.store.store.empty())
        return embeddedFolder(request.store.store);
    return request.repoRoot.empty() ? source : absolutePath(request.repoRoot);
}

std::array<Entry, 4> configuration(const Request& request, const std::string& source, const Helper& helper) {
    return {Entry{"driveId", request.driveId.empty() ? filesystem::path(source).filename().string() : request.driveId},
            Entry{"kemviHome", request.home.empty() ? defaultHome() : absolutePath(request.home)},
            Entry{"repoRoot", workedOn(request, source)}, Entry{"helperPath", helper.script}};
}

/// What `--env` and the options of a store tell the helper.
HelperSettings chosenSettings(const Request& request) {
    HelperSettings settings;
    if (!request.store.store.empty())
        settings = storeSettings(request.store, absolutePath(request.source));
    for (const std::string& setting : request.settings) {
        const auto each = helperSetting(setting, "--env " + setting);
        for (const auto& [name, value] : settings)
            if (name == each.first && name.starts_with("KEMVI_STORE"))
                throw CommandError(ExitCode::usage, "--env " + setting, "this is told by --store and its options");
        settings.push_back(each);
    }
    return settings;
}

/// An embedded store is only for whom it belongs to, and its files are not to be among those of the source directory.
void makeFolder(const std::string& embedded, const std::string& source) {
    if (isWithin(realPath(source).value_or(source), realPath(embedded).value_or(embedded)))
        throw CommandError(ExitCode::usage, "--store pglite:" + embedded,
                           "holds the source directory; name one of the store's own, such as pglite:" + source +
                               "/store");
    std::error_code error;
    if (filesystem::exists(embedded, error) && !filesystem::is_directory(embedded, error))
        throw CommandError(ExitCode::usage, "--store pglite:" + embedded, "is not a directory");
    if (filesystem::create_directories(embedded, error))
        filesystem::permissions(embedded, filesystem::perms::owner_all, error);
    if (error)
        throw CommandError(ExitCode::configuration, embedded, "cannot be created: " + error.message());
}

std::string jsonText(const std::string& value) {
    if (!foundation::isValidUtf8(value))
        throw CommandError(ExitCode::usage, value, "is not UTF-8, so it cannot stand in a mount configuration");
    return foundation::jsonString(value);
}

/// A further key with strings; nothing where there are none.
std::string jsonMember(const std::string& key, const std::vector<std::string>& strings) {
    std::string parts;
    for (const std::string& part : strings)
        parts += (parts.empty() ? "" : ", ") + jsonText(part);
    return parts.empty() ? "" : ",\n  \"" + key + "\": [" + parts + "]";
}

std::string jsonText(const std::array<Entry, 4>& entries, const Helper& helper, const HelperSettings& settings) {
    std::string text;
    for (const auto& [key, value] : entries)
        text += (text.empty() ? "{\n  " : ",\n  ") + foundation::jsonString(key) + ": " + jsonText(value);
    text += jsonMember("helperCommand", helper.command);
    text += jsonMember("mountOptions", helper.mountOptions);
    std::string variables;
    for (const auto& [name, value] : settings)
        variables += (variables.empty() ? "\n    " : ",\n    ") + jsonText(name) + ": " + jsonText(value);
    if (!variables.empty())
        text += ",\n  \"helperEnvironment\": {" + variables + "\n  }";
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
    foundation::Descriptor file(::mkstemp(temporary.data())); // no child is started that would inherit it
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

/// The helper alone knows what it needs there, which may be a file, or on a disk that is not mounted yet.
void tellIfMissing(const std::string& repoRoot) {
    std::error_code error;
    if (!filesystem::exists(repoRoot, error) && !error)
        printMessage("--repo-root " + repoRoot +
                     ": does not exist; make it before you mount (a directory: mkdir -p), or correct it with --force");
}

ExitCode run(const Request& request) {
    std::error_code error;
    if (filesystem::exists(request.source, error) && !filesystem::is_directory(request.source, error))
        throw CommandError(ExitCode::configuration, request.source, "is not a directory; give the source directory");
    const HelperSettings settings = chosenSettings(request);
    const Helper helper = chosenHelper(request);
    const auto entries = configuration(request, absolutePath(request.source), helper);
    const std::string text = jsonText(entries, helper, settings);
    filesystem::create_directories(request.source, error);
    if (error)
        throw CommandError(ExitCode::configuration, request.source, "cannot be created: " + error.message());
    if (const std::string embedded = embeddedFolder(request.store.store); !embedded.empty())
        makeFolder(embedded, absolutePath(request.source));
    const std::string path = configurationPath(absolutePath(request.source));
    writeFile(path, text, request.force ? Existing::replaced : Existing::kept);
    std::printf("Wrote %s:\n", escapedControls(path).c_str());
    for (const auto& [key, value] : entries)
        std::printf("  %-10s  %s\n", key, escapedControls(value).c_str());
    for (const std::string& part : helper.command)
        std::printf("  %-10s  %s\n", "which runs", escapedControls(part).c_str());
    for (const auto& [name, value] : settings)
        std::printf("  %-10s  %s=%s\n", "told", name.c_str(), escapedControls(value).c_str());
    for (const std::string& option : helper.mountOptions)
        std::printf("  %-10s  -o %s\n", "mounted", option.c_str());
    if (request.repoRoot.empty() && request.store.store.empty())
        std::printf("The source directory itself is served; --repo-root DIR names another.\n");
    const std::string& served = entries[2].second;
    const std::string& program = helper.command.empty() ? helper.script : helper.command.front();
    if (!request.repoRoot.empty())
        tellIfMissing(served);
    if (!served.empty() && isWithin(realPath(program).value_or(program), realPath(served).value_or(served))) {
        std::printf(
            "The helper lies inside the served directory: who may write there chooses what the next mount runs, "
            "and a mount\nthat covers the helper is refused; --repo-root DIR names another directory.\n");
    }
    if (const auto remark = remarkOnServing(served))
        std::printf("%s\n", escapedControls(*remark).c_str());
    std::printf("Next: %s\n", escapedControls(mountCommand(request.source)).c_str());
    return ExitCode::success;
}

/// The tree of a store is what other machines show too, and no directory of this one.
void addStoreOptions(CLI::App& command, StoreRequest& request) {
    CLI::Option* const store =
        command
            .add_option("--store", request.store,
                        "Show a tree that many machines share: pglite:DIR (embedded, one machine), or "
                        "postgres://[USER@]HOST[:PORT][,...]/DATABASE")
            ->type_name("URL");
    for (const char* other : {"--helper", "--native", "--command"})
        store->excludes(other);
    command
        .add_option("--contents", request.contents,
                    "Where a new tree keeps what is in files: database (default), or s3://BUCKET/PREFIX")
        ->type_name("PLACE")
        ->needs(store);
    command.add_option("--tree", request.tree, "Which tree of the store (default: main)")
        ->type_name("NAME")
        ->needs(store);
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
    command
        ->add_option("--command", request->command,
                     "Helper: any program with its arguments, such as 'python3 /path/tree.py'; quotes and backslashes "
                     "work as in a shell, which is not run")
        ->type_name("COMMAND")
        ->excludes(named)
        ->excludes("--native");
    command
        ->add_option("--env", request->settings,
                     "A variable for the helper's environment; may be given several times. Secrets belong into the "
                     "file mount-secrets.env in SOURCE")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false)
        ->take_all();
    addStoreOptions(*command, request->store);
    command->add_option("--drive-id", request->driveId, "Identifier of the drive (default: the directory's name)")
        ->type_name("ID");
    command
        ->add_option("--home", request->home, "Directory for the helper's own files (default: in your data directory)")
        ->type_name("DIR");
    command->add_option("--repo-root", request->repoRoot, "Directory that the helper works on (default: SOURCE)")
        ->type_name("DIR")
        ->excludes("--store");
    command->add_flag("--force", request->force, "Replace an existing mount-config.json");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
