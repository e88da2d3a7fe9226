#include "cli/UnmountCommand.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/MountTarget.h"
#include "cli/ProcessTable.h"
#include "control/ControlClient.h"
#include "foundation/Error.h"
#include "foundation/FileContents.h"
#include "hosts/fuse/mounting/MountTable.h"
#include "hosts/fuse/mounting/Unmounting.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

namespace {

using namespace std::chrono_literals;

// A forced end takes no longer than their sum.
constexpr auto orderlyEnd = 1500ms;
constexpr auto endAfterSecondSignal = 1500ms;
constexpr auto endAfterKilling = 1000ms;
constexpr auto quietWait = 3000ms;
constexpr auto watcherEnd = 1000ms;

constexpr auto asLongAsItTakes = std::chrono::hours(24 * 365); // the kernel writes what it holds before it lets go

constexpr std::size_t namedUsers = 5;

struct Request {
    std::string mountPoint;
    bool force = false;
    bool staleOnly = false;
};

/// The processes behind a mount, held before it is taken away.
struct Processes {
    std::vector<HeldProcess> hosts; // one, or none behind a stale mount
    std::vector<HeldProcess> helpers;
    /// They look at the mount point once more when the host ends; a new mount there must not meet them.
    std::vector<HeldProcess> watchers;
    std::string controlPath; // of the host; may be empty
};

void moveTo(std::vector<HeldProcess>& all, std::vector<HeldProcess> more) {
    std::move(more.begin(), more.end(), std::back_inserter(all));
}

Processes processesBehind(const MountTarget& target) {
    Processes processes;
    for (auto& serving : servingProcesses()) {
        if (!isBehind(serving, target))
            continue;
        const pid_t host = serving.process.pid();
        const Children children = childrenOf(host);
        auto helpers = heldChildren(children.helpers, host);
        auto watchers = heldChildren(children.watchers, host);
        if (serving.process.gone())
            continue; // those are another process's children, if there are any
        processes.hosts.push_back(std::move(serving.process));
        processes.controlPath = serving.controlPath;
        moveTo(processes.helpers, std::move(helpers));
        moveTo(processes.watchers, std::move(watchers));
    }
    return processes;
}

std::string userList(const fusehost::MountEntry& mount, const Processes& processes) {
    std::string list;
    const auto users =
        usersOfMount(mount.mountPoint, processes.hosts.empty() ? 0 : processes.hosts[0].pid(), namedUsers + 1);
    for (std::size_t i = 0; i < users.size() && i < namedUsers; ++i)
        list += (i == 0 ? " by " : ", ") + std::to_string(users[i].pid) + " (" + users[i].name + ")";
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

constexpr const char* hostUnseen =
    "unmounted, but the process that served it is not to be seen from here (another user's, or in another container); "
    "it and its helper may still run";

/// True where somebody serves the mount whom this user cannot see.
bool isServedUnseen(const fusehost::MountEntry& mount, const Processes& processes) {
    return processes.hosts.empty() && !fusehost::isStale(mount.mountPoint);
}

/// Where the file system of a mount that was taken away is mounted still (a bind mount, or what it was made from).
std::optional<std::string> otherPlaceOf(const fusehost::MountEntry& mount) {
    for (const auto& entry : fusehost::readMountTable())
        if (entry.isOurs() && entry.deviceMinor == mount.deviceMinor && entry.source == mount.source &&
            entry.mountPoint != mount.mountPoint)
            return entry.mountPoint;
    return std::nullopt;
}

bool seesMounted(pid_t process, const fusehost::MountEntry& mount) {
    try {
        const auto table =
            fusehost::parseMountInfo(foundation::contentsOfFile("/proc/" + std::to_string(process) + "/mountinfo"));
        return std::any_of(table.begin(), table.end(), [&](const fusehost::MountEntry& entry) {
            return entry.isOurs() && entry.deviceMinor == mount.deviceMinor && entry.source == mount.source;
        });
    } catch (const foundation::Error&) {
        return false; // it has ended, or is not ours to look into
    }
}

/// A process with a mount table of its own, as in a container, in which the file system is mounted still. The number of
/// one that is gone may have been given to a new mount, which then is in our own table.
std::optional<pid_t> processThatSees(const fusehost::MountEntry& mount) {
    if (otherPlaceOf(mount))
        return std::nullopt;
    const auto processes = allProcesses();
    const auto found =
        std::find_if(processes.begin(), processes.end(), [&](pid_t process) { return seesMounted(process, mount); });
    return found == processes.end() ? std::nullopt : std::optional(*found);
}

/// What the serving process knows of it: the kernel has the file system mounted still. False where it does not say.
bool isServedElsewhere(const Processes& processes) {
    if (processes.controlPath.empty())
        return false;
    try {
        control::ControlClient channel(processes.controlPath, processes.hosts.back().pid());
        const auto status = channel.ask("status");
        const auto* mounted = status.find("mounted");
        return mounted != nullptr && mounted->asBool() != nullptr && *mounted->asBool();
    } catch (const control::ChannelError&) {
        return false;
    }
}

/// For whom the file system is mounted still, though it is gone from here; nothing if for nobody. A process is seen to
/// have it only where this user may look, and only what lies beneath its root: one that has changed its root keeps
/// copies that no table shows.
std::optional<std::string> otherUserOf(const fusehost::MountEntry& mount, const Processes& processes) {
    if (const auto process = processThatSees(mount))
        return "process " + std::to_string(*process) + " (" + processName(*process) + "), as in a container,";
    if (isServedElsewhere(processes))
        return "a process that does not show it, as in a container,";
    return std::nullopt;
}

/// The process that serves has not ended, though the mount is gone from here: says what it waits for, and waits too
/// where it is the helper alone.
void waitForHost(const fusehost::MountEntry& mount, const Processes& processes, const HeldProcess& host) {
    const std::string pid = std::to_string(host.pid());
    if (const auto user = otherUserOf(mount, processes)) {
        printMessage(mount.mountPoint + ": unmounted here; the volume is still mounted for " + *user +
                     " and served until that ends; to end it now: kill " + pid);
        return;
    }
    printMessage(mount.mountPoint + ": unmounted; process " + pid +
                 " still waits for its helper to end; to end both: kill " + pid);
    host.waitGone();
}

bool isMounted(const fusehost::MountEntry& mount) {
    const auto found = fusehost::findMount(fusehost::readMountTable(), mount.mountPoint);
    return found && found->isOurs() && found->deviceMinor == mount.deviceMinor;
}

/// Has the process that serves it take the mount away. Nothing if that leaves it to us: it has no channel, does not
/// answer, knows the mount by another path, or has a mount table of its own.
std::optional<std::optional<fusehost::UnmountFailure>> unmountByHost(const fusehost::MountEntry& mount,
                                                                     const Processes& processes) {
    if (processes.controlPath.empty())
        return std::nullopt;
    try {
        control::ControlClient channel(processes.controlPath, processes.hosts.back().pid());
        if (const auto* known = channel.greeting().find("mountPoint");
            known == nullptr || known->asString() == nullptr || *known->asString() != mount.mountPoint)
            return std::nullopt;
        channel.ask("unmount", {}, asLongAsItTakes);
    } catch (const control::ChannelError& error) {
        if (error.code() == "busy")
            return fusehost::UnmountFailure{true, error.what()};
        // An end that came first has cut the answer off.
    }
    if (isMounted(mount))
        return std::nullopt;
    return std::optional<fusehost::UnmountFailure>();
}

std::optional<fusehost::UnmountFailure> takeAway(const fusehost::MountEntry& mount, const Processes& processes) {
    if (const auto outcome = unmountByHost(mount, processes))
        return *outcome;
    return fusehost::unmount(mount.mountPoint);
}

void unmountOrderly(const fusehost::MountEntry& mount, const Processes& processes) {
    const bool unseen = isServedUnseen(mount, processes);
    if (const auto failure = takeAway(mount, processes))
        refuse(mount, *failure, processes);
    if (unseen)
        printMessage(mount.mountPoint + ": " + hostUnseen);
    if (const auto elsewhere = otherPlaceOf(mount)) {
        printMessage(mount.mountPoint + ": unmounted; the volume is still mounted at " + *elsewhere);
        return;
    }
    for (const auto& host : processes.hosts)
        if (!host.waitGone(quietWait))
            waitForHost(mount, processes, host);
}

/// Ends the processes of a mount: asked to end in order, told not to wait for the helper, killed.
void endByForce(const std::string& mountPoint, const Processes& processes) {
    const auto signalHosts = [&](int number) {
        for (const auto& host : processes.hosts)
            host.signal(number);
    };
    signalHosts(SIGTERM);
    if (!allGone(processes.hosts, orderlyEnd)) {
        signalHosts(SIGTERM);
        if (!allGone(processes.hosts, endAfterSecondSignal))
            signalHosts(SIGKILL);
    }
    for (const auto& helper : processes.helpers) {
        if (!helper.gone()) {
            printMessage(mountPoint + ": the helper (pid " + std::to_string(helper.pid()) +
                         ") did not end and is killed");
            helper.signalGroup(SIGKILL);
        }
    }
    if (!allGone(processes.hosts, endAfterKilling) || !allGone(processes.helpers, endAfterKilling))
        throw CommandError(ExitCode::failure, mountPoint, "unmounted, but its processes could not be ended");
}

void unmountByForce(const fusehost::MountEntry& mount, const Processes& processes) {
    const bool unseen = isServedUnseen(mount, processes);
    if (const auto failure = fusehost::unmountLazily(mount.mountPoint))
        refuse(mount, *failure, processes);
    if (unseen)
        throw CommandError(ExitCode::failure, mount.mountPoint, hostUnseen);
    endByForce(mount.mountPoint, processes);
}

/// Where nothing is mounted: processes may be left of a mount whose end hangs, or of one that does not get ready.
[[noreturn]] void refuseUnmounted(const std::string& path, const Processes& processes) {
    if (processes.hosts.empty())
        throw CommandError(ExitCode::notMounted, path, "nothing is mounted here");
    throw CommandError(ExitCode::notMounted, path,
                       "nothing is mounted here, but process " + std::to_string(processes.hosts[0].pid()) +
                           " of a mount here still runs; to end it and its helper: kemvi unmount --force " + path);
}

/// What a service does after its process has ended, however it ended: mostly there is nothing to do.
ExitCode clearStale(const MountTarget& target, const Processes& processes) {
    if (!target.mount || !processes.hosts.empty() || !fusehost::isStale(target.mount->mountPoint))
        return ExitCode::success;
    if (const auto failure = fusehost::unmountLazily(target.mount->mountPoint))
        refuse(*target.mount, *failure, processes);
    return ExitCode::success;
}

ExitCode run(const Request& request) {
    const MountTarget target = findMountTarget(request.mountPoint);
    const Processes processes = processesBehind(target);
    if (request.staleOnly)
        return clearStale(target, processes);
    if (!target.mount && (processes.hosts.empty() || !request.force))
        refuseUnmounted(target.path, processes);
    if (!target.mount)
        endByForce(target.path, processes);
    else if (request.force)
        unmountByForce(*target.mount, processes);
    else
        unmountOrderly(*target.mount, processes);
    allGone(processes.watchers, watcherEnd);
    return ExitCode::success;
}

} // namespace

void addUnmountCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("unmount", "End a mount and wait until its helper has ended");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    auto* force = command->add_flag("--force", request->force,
                                    "Also if it is in use or its helper does not answer; takes a few seconds at most");
    command->add_flag("--stale", request->staleOnly, "Only if the process that served it is gone; otherwise do nothing")
        ->excludes(force);
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
