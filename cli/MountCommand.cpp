#include "cli/MountCommand.h"

#include "cli/Background.h"
#include "cli/CommandError.h"
#include "cli/MountPoint.h"
#include "cli/MountSession.h"
#include "cli/MountSource.h"
#include "cli/Signals.h"
#include "foundation/Log.h"

#include <memory>
#include <string_view>

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
  request_size=BYTES     most bytes of one read or write request (64k)
  writeback              let the kernel gather small writes
  fsname=TEXT            the device shown in the mount table (default: SOURCE)
  nosuid, nodev, noexec, noatime, sync, dirsync
                         as mount(8) has them)";

fusehost::MountOptions parseOptions(const std::vector<std::string>& lists) {
    fusehost::MountOptions options;
    for (const std::string& list : lists) {
        try {
            options.add(list);
        } catch (const fusehost::MountOptionError& error) {
            throw CommandError(ExitCode::usage, "-o " + list, error.what());
        }
    }
    return options;
}

using foundation::Log::setLevel;

/// What fails before the mount is ready is told in one message of the command's own; the log would tell it twice.
ExitCode runInForeground(const MountPlan& plan, bool verbose) {
    Progress progress;
    if (!verbose) {
        setLevel(foundation::LogLevel::fault);
        progress.mounted = [] { setLevel(foundation::LogLevel::error); };
    }
    return runMountSession(plan, progress);
}

ExitCode runWithSystemLog(const MountPlan& plan) {
    return runInBackground([&](const Progress& progress) {
        foundation::Log::setSink(foundation::makeSystemLogSink("kemvi"));
        return runMountSession(plan, progress);
    });
}

} // namespace

ExitCode mount(const MountRequest& request) {
    auto options = parseOptions(request.options);
    const MountSource source = readMountSource(request.source);
    const std::string mountPoint = checkedMountPoint(request.mountPoint, source, options.nonEmpty);
    checkHelperAvailable(source);
    checkFuseAvailable(options.allowOther);
    if (request.checkOnly) {
        return ExitCode::success;
    }
    blockStopSignals();
    tellSourceToHelpers(source);
    const MountPlan plan{source.path, mountPoint, source.config.helperPath, std::move(options)};
    foundation::Log::showPrivateValues(request.showPrivate);
    return request.foreground ? runInForeground(plan, request.verbose) : runWithSystemLog(plan);
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
    command->footer(optionList);
    command->callback([request, &result] { result = mount(*request); });
}

} // namespace cli
