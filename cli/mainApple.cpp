#include "cli/CheckCommand.h"
#include "cli/CommandLine.h"
#include "cli/InitCommand.h"
#include "cli/ProcessStart.h"
#include "cli/ReportingErrors.h"
#include "cli/SystemMount.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    cli::settleInheritedState();
    int status = 0;
    const auto failed = cli::reportingErrors([&] {
        CLI::App app("Prepares and examines directories that macOS mounts with the Kemvi extension", "kemvi");
        app.set_version_flag("-V,--version", "kemvi " KEMVI_VERSION);
        app.require_subcommand(1);
        app.footer("kemvi help COMMAND tells more of a command.");
        cli::ExitCode result = cli::ExitCode::success;
        cli::addInitCommand(app, result);
        cli::addCheckCommand(app, result);
        cli::addSystemMountCommand(app, result);
        status = cli::runCommandLine(app, result, "a command is missing: init, check or mount; see kemvi --help", argc,
                                     argv);
        return cli::ExitCode::success;
    });
    return failed == cli::ExitCode::success ? status : static_cast<int>(failed);
}
