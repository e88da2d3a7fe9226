#include "cli/CheckCommand.h"

#include "cli/CommandError.h"
#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "cli/Signals.h"
#include "cli/check/Checks.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace cli {

namespace {

struct Request {
    std::string source;
    std::string writeDirectory;
    double opTimeout = 10; // in seconds, as it is typed
    bool json = false;
    bool tap = false;
};

constexpr const char* configurationCheck = "the configuration is complete, and what it names is there";

/// What is wrong before there is a helper to talk to, and the exit code that a mount would end with for it.
ExitCode examine(const Request& request, check::Report& report) {
    report.begin(configurationCheck);
    report.done(configurationCheck);
    try {
        const MountSource source = readMountSource(request.source);
        checkHelperAvailable(source);
        tellSourceToHelpers(source);
        if (!source.config.repoRoot.empty() && !realPath(source.config.repoRoot)) {
            report.add(configurationCheck, {check::Severity::warning,
                                            "\"repoRoot\" names no existing directory: " + source.config.repoRoot,
                                            "a helper that serves it has nothing to serve",
                                            {},
                                            {}});
        }
        const auto limit =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(request.opTimeout));
        check::Conversation talk(source.config, limit, report);
        if (!talk.start())
            return ExitCode::helperFailed;
        checkRequests(talk);
        checkReading(talk, checkTree(talk));
        if (!request.writeDirectory.empty())
            checkWriting(talk, request.writeDirectory);
        talk.end();
    } catch (const check::Interrupted&) {
        report.interrupt();
        return ExitCode::interrupted;
    } catch (const CommandError& error) {
        report.add(configurationCheck, {check::Severity::error, error.what(), "nothing can be mounted", {}, {}});
        return error.code();
    }
    return report.count(check::Severity::error) > 0 ? ExitCode::findings : ExitCode::success;
}

/// The directory to write in as the protocol spells it: without a slash at the end. Throws CommandError.
std::string plainPath(const std::string& given) {
    const std::filesystem::path path(given);
    if (given.empty() || path.lexically_normal().native() != given || !given.starts_with('/') ||
        given.starts_with("//")) {
        throw CommandError(ExitCode::usage, "--write " + given,
                           "expected a path of the served tree, starting with /, without \"//\", \".\" and \"..\"");
    }
    return given != "/" && given.ends_with('/') ? given.substr(0, given.size() - 1) : given;
}

ExitCode run(Request request) {
    if (!request.writeDirectory.empty())
        request.writeDirectory = plainPath(request.writeDirectory);
    blockStopSignals();
    check::Report report;
    const ExitCode code = examine(request, report);
    const std::string text = request.json ? jsonText(report) : request.tap ? tapText(report) : plainText(report);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return code;
}

} // namespace

void addCheckCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("check", "Examine a source directory and its helper");
    command->add_option("SOURCE", request->source, "Directory that holds mount-config.json")->required();
    command
        ->add_option("--write", request->writeDirectory,
                     "Exercise changes too, in a new folder inside this directory of the served tree (such as /)")
        ->type_name("DIR");
    command->add_option("--op-timeout", request->opTimeout, "Longest time for one answer, in seconds (default: 10)")
        ->check(CLI::Range(0.001, 86400.0));
    auto* json = command->add_flag("--json", request->json, "Print the result as one JSON object");
    command->add_flag("--tap", request->tap, "Print the result in the Test Anything Protocol")->excludes(json);
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
