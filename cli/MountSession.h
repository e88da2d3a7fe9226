#pragma once

#include "cli/Background.h"
#include "cli/ExitCode.h"
#include "cli/RecentLog.h"
#include "cli/ServiceManager.h"
#include "cli/record/MountRecording.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <memory>
#include <string>

namespace cli {

/// A mount of which everything that can be checked beforehand has been checked.
struct MountPlan {
    std::string source;     // real path
    std::string mountPoint; // real path
    std::string helperPath; // for messages
    fusehost::MountOptions options;
    RecordPlan record;
    ServiceManager manager; // who is told how the mount is, beside the one who waits for it
    std::shared_ptr<RecentLog> log = std::make_shared<RecentLog>();
};

/// Lives through one mount: starts the helper, mounts, reports, serves until the end, lets the helper go. Blocks all
/// that time. Leaves no helper behind, whatever happens. Must be called in the process's first thread, with the stop
/// signals blocked and no other thread running. Throws CommandError; before "ready" was reported nothing is mounted
/// then.
ExitCode runMountSession(const MountPlan& plan, const Progress& progress);

} // namespace cli
