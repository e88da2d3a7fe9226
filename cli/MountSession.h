#pragma once

#include "cli/Background.h"
#include "cli/ExitCode.h"
#include "cli/RecentLog.h"
#include "cli/ServiceManager.h"
#include "cli/record/MountRecording.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <memory>
#include <string>
#include <vector>

namespace cli {

/// A mount of which everything that can be checked beforehand has been checked.
struct MountPlan {
    std::string source;     // real path
    std::string mountPoint; // real path
    std::string helperPath;
    std::string helperName;                  // for messages
    std::vector<std::string> helperCommand;  // what the shipped script `program` runs; empty: it is not the helper
    std::vector<std::string> helperSettings; // the names of the variables that are set for the helper, each once
    fusehost::MountOptions options;
    RecordPlan record;
    ServiceManager manager;           // who is told how the mount is, beside the one who waits for it
    std::vector<std::string> watched; // files with which the helper begins, when it is started anew as they change
    std::shared_ptr<RecentLog> log = std::make_shared<RecentLog>();
};

/// Lives through one mount: starts the helper, mounts, reports, serves until the end, lets the helper go. Blocks all
/// that time. Leaves no helper behind, whatever happens. Must be called in the process's first thread, with the stop
/// signals blocked and no other thread running. Throws CommandError; before "ready" was reported nothing is mounted
/// then.
ExitCode runMountSession(const MountPlan& plan, const Progress& progress);

} // namespace cli
