#include "cli/MountHelper.h"

#include "cli/Background.h"
#include "cli/MountCommand.h"
#include "cli/VersionText.h"

#include <string>
#include <string_view>

namespace cli {

namespace {

// The exit statuses that mount(8) knows.
constexpr int mountUsage = 1;
constexpr int mountInterrupted = 8;
constexpr int mountFailure = 32;

int statusForMount(ExitCode code) {
    switch (code) {
    case ExitCode::success: return 0;
    case ExitCode::usage: return mountUsage;
    case ExitCode::interrupted: return mountInterrupted;
    default: return mountFailure;
    }
}

} // namespace

bool isCalledByMount(const char* programName) {
    std::string_view name = programName != nullptr ? programName : "";
    name.remove_prefix(name.rfind('/') + 1);
    return name == "mount.kemvi" || name == "mount.fuse.kemvi";
}

int runAsMountHelper(int argc, char** argv) {
    CLI::App app("Mounts a Kemvi source directory on behalf of mount(8)", "mount.kemvi");
    MountRequest request;
    bool flagged = false;
    std::string ignored;
    app.set_version_flag("--version,-V", "kemvi " KEMVI_VERSION);
    app.add_option("SOURCE", request.source, "Directory that holds mount-config.json")->required();
    app.add_option("MOUNTPOINT", request.mountPoint, "Empty directory to mount on")->required();
    app.add_option("-o", request.options, "Mount options, separated by commas")->allow_extra_args(false)->take_all();
    app.add_flag("-f", request.checkOnly, "Check everything, but do not mount");
    app.add_flag("-v", request.verbose, "Accepted");
    app.add_flag("-s,-n", flagged, "Accepted without effect");
    app.add_option("-t,-N", ignored, "Accepted without effect")->allow_extra_args(false);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion&) {
        printVersion();
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : mountUsage;
    }
    return statusForMount(reportingErrors([&] { return mount(request); }));
}

} // namespace cli
