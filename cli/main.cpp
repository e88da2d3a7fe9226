#include "cli/Background.h"
#include "cli/CheckCommand.h"
#include "cli/CommandError.h"
#include "cli/DeathWatch.h"
#include "cli/InitCommand.h"
#include "cli/InvalidateCommand.h"
#include "cli/ListCommand.h"
#include "cli/LogCommand.h"
#include "cli/MetricsCommand.h"
#include "cli/MountCommand.h"
#include "cli/MountHelper.h"
#include "cli/ProcessStart.h"
#include "cli/RecordCommand.h"
#include "cli/ReplayCommand.h"
#include "cli/ReportCommand.h"
#include "cli/RestartCommand.h"
#include "cli/Spelling.h"
#include "cli/StatsCommand.h"
#include "cli/StatusCommand.h"
#include "cli/TraceCommand.h"
#include "cli/UnmountCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

namespace {

/// "kemvi help" and "kemvi help COMMAND" as the options that they stand for.
std::vector<std::string> withoutHelpCommand(std::vector<std::string> words) {
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return words;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names{"help"};
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
        names.insert(names.end(), command->get_aliases().begin(), command->get_aliases().end());
    }
    return names;
}

/// Throws CommandError unless the first word, which there must be, is a command or an option.
void checkCommand(const CLI::App& app, const std::vector<std::string>& words) {
    const std::string& word = words.front();
    const auto known = commandNames(app);
    if (word.starts_with('-') || std::find(known.begin(), known.end(), word) != known.end())
        return;
    const auto meant = cli::likelyMeant(word, known);
    throw cli::CommandError(cli::ExitCode::usage, word,
                            "there is no such command; " +
                                (meant ? "did you mean kemvi " + *meant + "?" : std::string("see kemvi --help")));
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Mounts a directory tree that a helper program serves", "kemvi");
    app.set_version_flag("-V,--version", "kemvi " KEMVI_VERSION);
    app.require_subcommand(1);
    app.footer("kemvi help COMMAND tells more of a command. Exit codes and mount options: kemvi(1).");
    cli::ExitCode result = cli::ExitCode::success;
    cli::addMountCommand(app, result);
    cli::addUnmountCommand(app, result);
    cli::addListCommand(app, result);
    cli::addStatusCommand(app, result);
    cli::addStatsCommand(app, result);
    cli::addMetricsCommand(app, result);
    cli::addTraceCommand(app, result);
    cli::addLogCommand(app, result);
    cli::addInvalidateCommand(app, result);
    cli::addRestartCommand(app, result);
    cli::addInitCommand(app, result);
    cli::addCheckCommand(app, result);
    cli::addRecordCommand(app, result);
    cli::addReplayCommand(app, result);
    cli::addReportCommand(app, result);
    app.get_subcommand("unmount")->alias("umount");
    auto words = withoutHelpCommand({argv + 1, argv + argc});
    if (words.empty()) {
        cli::printMessage(
            "a command is missing: mount, unmount, list, status, init, check or another; see kemvi --help");
        return static_cast<int>(cli::ExitCode::usage);
    }
    checkCommand(app, words);
    try {
        std::reverse(words.begin(), words.end()); // as it is taken: the last word first
        app.parse(words);
    } catch (const CLI::Success& answered) { // --help, --version
        return app.exit(answered);
    } catch (const CLI::ParseError& error) {
        cli::printMessage(std::string(error.what()) + "; see kemvi --help");
        return static_cast<int>(cli::ExitCode::usage);
    }
    return static_cast<int>(result);
}

} // namespace

int main(int argc, char** argv) {
    cli::settleInheritedState();
    if (cli::isCalledByMount(argv[0]))
        return cli::runAsMountHelper(argc, argv);
    if (cli::isCalledToWatch(argc, argv))
        return cli::runDeathWatch(argv);
    int status = 0;
    const auto failed = cli::reportingErrors([&] {
        status = runCommandLine(argc, argv);
        return cli::ExitCode::success;
    });
    return failed == cli::ExitCode::success ? status : static_cast<int>(failed);
}
