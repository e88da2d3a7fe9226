#include "cli/MountCommand.h"

#include "cli/Background.h"
#include "cli/CommandError.h"
#include "cli/HelperEnvOption.h"
#include "cli/MountPoint.h"
#include "cli/MountSession.h"
#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "cli/Signals.h"
#include "cli/StderrRelay.h"
#include "cli/watch/HelperFiles.h"
#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

namespace {

constexpr const char* optionList = R"(Mount options:
  ro, rw                 read-only, or both (default)
  allow_other            let other users in
  fmask=MASK, dmask=MASK permission bits (octal) taken from 0777 for files, directories; umask= sets both
  uid=ID, gid=ID         the owner shown for everything, by number or name
  quiet                  a chown that cannot be done succeeds silently
  nonempty               mount on a directory that is not empty
  entry_timeout=SECONDS, attr_timeout=SECONDS, negative_timeout=SECONDS
                         how long names, attributes and absent names are trusted (1, 1, 0)
  close_to_open          whoever opens a file sees what others have closed before
  request_size=BYTES     most bytes of one read or write request (64k)
  placement=auto|off     whether host and helper may share a processor while that is faster (auto)
  on_death=fail|exit|restart
                         when the helper ends: operations fail, the mount ends too, or it is started anew (fail)
  op_timeout=SECONDS     a helper that does not answer for so long is ended (none)
  helper_env=NAME=VALUE  a variable for the helper's environment; may be given several times
  writeback              let the kernel gather small writes
  fsname=TEXT            the device shown in the mount table (default: SOURCE)
  log_file=FILE, log_level=LEVEL, show_private
                         as --log-file, --log-level and --show-private
  nosuid, nodev, noexec, noatime, sync, dirsync
                         as mount(8) has them)";

/// What is for the helper goes into `settings`.
void addOptions(fusehost::MountOptions& options, const std::vector<std::string>& lists, HelperSettings& settings) {
    for (const std::string& list : lists) {
        try {
            options.add(takeSettings(list, settings));
        } catch (const fusehost::MountOptionError& error) {
            throw CommandError(ExitCode::usage, "-o " + list, error.what());
        }
    }
}

/// What the configuration says that its tree should be mounted with.
fusehost::MountOptions optionsOf(const MountSource& source) {
    const std::string key = source.configurationPath() + ": \"mountOptions\"";
    fusehost::MountOptions options;
    for (const std::string& list : source.options) {
        HelperSettings settings;
        try {
            options.add(takeSettings(list, settings));
        } catch (const fusehost::MountOptionError& error) {
            throw CommandError(ExitCode::configuration, key, list + ": " + error.what());
        }
        if (!settings.empty())
            throw CommandError(ExitCode::configuration, key,
                               list + ": variables for the helper belong into \"helperEnvironment\"");
    }
    return options;
}

using foundation::LogLevel;
using foundation::Log::setLevel;

/// The command's own options are `-o` options as well, for fstab; those of the command count.
void addLogOptions(fusehost::MountOptions& options, const MountRequest& request) {
    options.showPrivate = options.showPrivate || request.showPrivate;
    if (!request.logFile.empty())
        options.logFile = request.logFile;
    if (!request.logLevel.empty()) {
        options.logLevel = fusehost::logLevelNamed(request.logLevel);
        if (!options.logLevel) {
            throw CommandError(ExitCode::usage, "--log-level " + request.logLevel,
                               "expected debug, info, warning or error");
        }
    }
    if (options.logFile)
        options.logFile = absolutePath(*options.logFile);
}

/// A line about the mount would be a request to the mount.
void checkLogFile(const std::optional<std::string>& logFile, const std::string& mountPoint) {
    if (logFile && isWithin(realParentPath(*logFile).value_or(*logFile), mountPoint))
        throw CommandError(ExitCode::usage, *logFile, "a log cannot lie on the mount that it is about");
}

/// What the recording tells of a mount would be written to that mount, and told once more.
RecordPlan recordPlan(const MountRequest& request, const std::string& mountPoint) {
    if (request.record.empty())
        return {};
    const std::string file = absolutePath(request.record);
    if (isWithin(realParentPath(file).value_or(file), mountPoint))
        throw CommandError(ExitCode::usage, file, "a recording cannot lie on the mount that it is of");
    return {file, request.recordOptions.settings()};
}

std::shared_ptr<foundation::LogSink> fileSink(const MountPlan& plan) {
    try {
        return foundation::makeFileLogSink(*plan.options.logFile, plan.mountPoint);
    } catch (const foundation::NSErrorException& error) {
        throw CommandError(ExitCode::usage, *plan.options.logFile,
                           "cannot be written: " +
                               errnoText(foundation::platformErrno(static_cast<std::int32_t>(error.nsError().code))));
    }
}

/// What fails before the mount is ready is told in one message of the command's own; the log would tell it twice.
ExitCode runInForeground(const MountPlan& plan, const MountRequest& request) {
    StderrRelay relay;
    foundation::Log::setSink(plan.log->before(
        plan.options.logFile ? fileSink(plan)
                             : foundation::makeDescriptorLogSink(relay.duplicateOfTerminal(), plan.mountPoint)));
    const LogLevel level = plan.options.logLevel.value_or(request.verbose ? LogLevel::info : LogLevel::warning);
    setLevel(request.verbose || plan.options.logFile ? level : LogLevel::fault);
    Progress progress;
    progress.mounted = [&] {
        setLevel(level);
        relay.switchToLog();
    };
    return runMountSession(plan, progress);
}

ExitCode runInTheBackground(const MountPlan& plan) {
    const auto session = isAutomount(plan.mountPoint) ? OwnSession::onceReady : OwnSession::fromTheStart;
    const auto serve = [&](const Progress& progress) {
        foundation::Log::setSink(plan.log->before(
            plan.options.logFile ? fileSink(plan) : foundation::makeSystemLogSink("kemvi", plan.mountPoint)));
        setLevel(plan.options.logLevel.value_or(LogLevel::info));
        return runMountSession(plan, progress);
    };
    const ExitCode code = runInBackground(serve, session);
    if (code == ExitCode::success && !plan.options.logFile && !foundation::hasSystemLog()) {
        printMessage(
            plan.mountPoint +
            ": is mounted; this machine has no system log, so the last that there is to tell is in 'kemvi log' "
            "for as long as the mount lives: --log-file FILE keeps it");
    }
    return code;
}

} // namespace

ExitCode mount(const MountRequest& request) {
    HelperSettings settings;
    fusehost::MountOptions given; // looked at first: the configuration is not to blame for what was typed
    addOptions(given, request.options, settings);
    MountSource source = readMountSource(request.source);
    auto options = optionsOf(source);
    settings.clear();
    addOptions(options, request.options, settings);
    const std::string mountPoint = checkedMountPoint(request.mountPoint, source, options);
    checkHelperAvailable(source);
    checkFuseAvailable(options);
    if (request.checkOnly)
        return ExitCode::success;
    addLogOptions(options, request);
    checkLogFile(options.logFile, mountPoint);
    blockStopSignals();
    // What is asked for now counts more than what is written there.
    source.settings.insert(source.settings.end(), settings.begin(), settings.end());
    tellSourceToHelpers(source);
    const auto manager = ServiceManager::takeFromEnvironment(); // waits for the command itself, not for its child
    const MountPlan plan{source.path,
                         mountPoint,
                         source.config.helperPath,
                         source.helperName(),
                         source.command,
                         namesOf(source.settings),
                         std::move(options),
                         recordPlan(request, mountPoint),
                         request.foreground ? manager : ServiceManager(),
                         request.watch ? helperRoots(source) : std::vector<std::string>()};
    foundation::Log::showPrivateValues(plan.options.showPrivate);
    return request.foreground ? runInForeground(plan, request) : runInTheBackground(plan);
}

void addMountCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<MountRequest>();
    CLI::App* command = app.add_subcommand("mount", "Mount what a source directory's helper serves");
    command->add_option("SOURCE", request->source, "Directory that holds mount-config.json")->required();
    command->add_option("MOUNTPOINT", request->mountPoint, "Empty directory to mount on")->required();
    command->add_flag("-f,--foreground", request->foreground, "Stay in the foreground until unmounted");
    command->add_option("-o", request->options, "Mount options, separated by commas; kemvi(1) lists them")
        ->type_name("OPTION,...")
        ->allow_extra_args(false)
        ->take_all();
    command->add_flag("-v,--verbose", request->verbose, "With -f: log every step of the mount's life");
    command->add_flag("--show-private", request->showPrivate, "Write private values (paths) out in the log");
    command->add_option("--log-file", request->logFile, "Log to this file instead of the terminal or the system's log")
        ->type_name("FILE");
    command->add_option("--log-level", request->logLevel, "The least that is logged: debug, info, warning or error")
        ->type_name("LEVEL");
    command->add_flag("--watch", request->watch,
                      "Start the helper anew when its script, or a file that the script imports, changes");
    command
        ->add_option("--record", request->record,
                     "Record what is asked and answered into this file; compressed if its name ends in .zst")
        ->type_name("FILE");
    addRecordOptions(*command, request->recordOptions, "--record-");
    command->footer(optionList);
    command->callback([request, &result] { result = mount(*request); });
}

} // namespace cli
