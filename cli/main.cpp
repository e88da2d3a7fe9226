#include "cli/Background.h"
#include "cli/CheckCommand.h"
#include "cli/CommandLine.h"
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
#include "cli/StatsCommand.h"
#include "cli/StatusCommand.h"
#include "cli/TraceCommand.h"
#include "cli/UnmountCommand.h"

#include <CLI/CLI.hpp>

namespace {

int runCommand(int argc, char** argv) {
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
    return cli::runCommandLine(app, result,
                               "a command is missing: mount, unmount, list, status, init, check or another; see "
                               "kemvi --help",
                               argc, argv);
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
        status = runCommand(argc, argv);
        return cli::ExitCode::success;
    });
    return failed == cli::ExitCode::success ? status : static_cast<int>(failed);
}
