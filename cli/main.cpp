#include "cli/Background.h"
#include "cli/CheckCommand.h"
#include "cli/CommandError.h"
#include "cli/InitCommand.h"
#include "cli/MountCommand.h"
#include "cli/MountHelper.h"
#include "cli/MountWatch.h"
#include "cli/ProcessStart.h"
#include "cli/UnmountCommand.h"

#include <CLI/CLI.hpp>

namespace {

int runCommandLine(int argc, char** argv) {
    CLI::App app("Mounts a directory tree that a helper program serves", "kemvi");
    app.set_version_flag("--version", "kemvi " KEMVI_VERSION);
    app.require_subcommand(1);
    app.footer("Exit codes and mount options: kemvi(1).");
    cli::ExitCode result = cli::ExitCode::success;
    cli::addMountCommand(app, result);
    cli::addUnmountCommand(app, result);
    cli::addInitCommand(app, result);
    cli::addCheckCommand(app, result);
    try {
        app.parse(argc, argv);
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
    if (cli::isCalledByMount(argv[0])) {
        return cli::runAsMountHelper(argc, argv);
    }
    if (cli::isCalledToWatch(argc, argv)) {
        return cli::runMountWatch(argv[2]);
    }
    int status = 0;
    const auto failed = cli::reportingErrors([&] {
        status = runCommandLine(argc, argv);
        return cli::ExitCode::success;
    });
    return failed == cli::ExitCode::success ? status : static_cast<int>(failed);
}
