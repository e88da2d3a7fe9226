#include "cli/UnmountCommand.h"

#include "cli/CommandError.h"
#include "cli/MountSession.h"
#include "cli/Paths.h"
#include "cli/ProcessTable.h"
#include "hosts/fuse/MountTable.h"
#include "hosts/fuse/Unmounting.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace cli {

namespace {

// Milliseconds. A forced end takes no longer than their sum.
constexpr int orderlyEnd = 1500;
constexpr int endAfterSecondSignal = 1500;
constexpr int endAfterKilling = 1000;
constexpr int quietWait = 3000;
constexpr int watcherEnd = 1000;

constexpr std::size_t namedUsers = 5;

struct Request {
    std::string mountPoint;
    bool force = false;
};

/// The mount that the user means. A link to a mount point is followed only once it is clear that no mount bears its
/// name, because following the name of a mount asks the mounted file system.
fusehost::MountEntry findOurMount(const std::string& name) {
    const auto table = fusehost::readMountTable();
    auto path = realParentPath(name);
    auto found = path ? fusehost::findMount(table, *path) : std::nullopt;
    std::error_code error;
    if (path && !found && std::filesystem::is_symlink(*path, error)) {
        path = realPath(*path);
        found = path ? fusehost::findMount(table, *path) : std::nullopt;
    }
    if (!found) {
        throw CommandError(ExitCode::notMounted, name, "nothing is mounted here");
    }
    if (!found->isOurs()) {
        throw CommandError(ExitCode::notMounted, name,
                           "what is mounted here is of type " + found->type + ", not of ours; use umount");
    }
    return *found;
}

/// The processes behind a mount, held before it is taken away.
struct Processes {
    std::vector<ProcessHandle> hosts; // one, or none behind a stale mount
    std::vector<ProcessHandle> helpers;
    /// They look at the mount point once more when the host ends; a new mount there must not meet them.
    std::vector<ProcessHandle> watchers;
};

Processes processesBehind(const fusehost::MountEntry& mount) {
    Processes processes;
    for (const pid_t host : sameProgramNamed(servingProcessName(mount.deviceMinor))) {
        processes.hosts.emplace_back(host);
        const Children children = childrenOf(host);
        for (const pid_t pid : children.helpers) {
            processes.helpers.emplace_back(pid);
        }
        for (const pid_t pid : children.watchers) {
            processes.watchers.emplace_back(pid);
        }
    }
    return processes;
}

std::string userList(const fusehost::MountEntry& mount, const Processes& processes) {
    std::string list;
    const auto users =
        usersOfMount(mount.mountPoint, processes.hosts.empty() ? 0 : processes.hosts[0].pid(), namedUsers + 1);
    for (std::size_t i = 0; i < users.size() && i < namedUsers; ++i) {
        list += (i == 0 ? " by " : ", ") + std::to_string(users[i].pid) + " (" + users[i].name + ")";
    }
    return list + (users.size() > namedUsers ? " and others" : "");
}

[[noreturn]] void refuse(const fusehost::MountEntry& mount, const fusehost::UnmountFailure& failure,
                         const Processes& processes) {
    if (failure.busy) {
        throw CommandError(ExitCode::busy, mount.mountPoint,
                           "is in use" + userList(mount, processes) +
                               "; end what uses it and try again, or cut it off with --force");
    }
    throw CommandError(ExitCode::failure, mount.mountPoint, "cannot be unmounted: " + failure.reason);
}

void unmountOrderly(const fusehost::MountEntry& mount, const Processes& processes) {
    if (const auto failure = fusehost::unmount(mount.mountPoint)) {
        refuse(mount, *failure, processes);
    }
    for (const auto& host : processes.hosts) {
        if (!host.waitGone(quietWait)) {
            const std::string pid = std::to_string(host.pid());
            printMessage(mount.mountPoint + ": unmounted; process " + pid +
                         " still waits for its helper to end; to end both: kill " + pid);
            host.waitGone(-1);
        }
    }
}

bool allGone(const std::vector<ProcessHandle>& processes, int milliseconds) {
    bool gone = true;
    for (const auto& process : processes) {
        gone = process.waitGone(gone ? milliseconds : 0) && gone;
    }
    return gone;
}

/// Detaches the mount, then ends its processes: asked to end in order, told not to wait for the helper, killed.
void unmountByForce(const fusehost::MountEntry& mount, const Processes& processes) {
    if (const auto failure = fusehost::unmountLazily(mount.mountPoint)) {
        refuse(mount, *failure, processes);
    }
    const auto signalHosts = [&](int number) {
        for (const auto& host : processes.hosts) {
            host.signal(number);
        }
    };
    signalHosts(SIGTERM);
    if (!allGone(processes.hosts, orderlyEnd)) {
        signalHosts(SIGTERM);
        if (!allGone(processes.hosts, endAfterSecondSignal)) {
            signalHosts(SIGKILL);
        }
    }
    for (const auto& helper : processes.helpers) {
        if (!helper.gone()) {
            printMessage(mount.mountPoint + ": the helper (pid " + std::to_string(helper.pid()) +
                         ") did not end and is killed");
            helper.signalGroup(SIGKILL);
        }
    }
    if (!allGone(processes.hosts, endAfterKilling) || !allGone(processes.helpers, endAfterKilling)) {
        throw CommandError(ExitCode::failure, mount.mountPoint, "unmounted, but its processes could not be ended");
    }
}

ExitCode run(const Request& request) {
    const fusehost::MountEntry mount = findOurMount(request.mountPoint);
    const Processes processes = processesBehind(mount);
    if (request.force) {
        unmountByForce(mount, processes);
    } else {
        unmountOrderly(mount, processes);
    }
    allGone(processes.watchers, watcherEnd);
    return ExitCode::success;
}

} // namespace

void addUnmountCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("unmount", "End a mount and wait until its helper has ended");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_flag("--force", request->force,
                      "Also if it is in use or its helper does not answer; takes a few seconds at most");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
