#include "cli/MountPoint.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/Paths.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

/// What waits at a directory for somebody to look, and has the mount made then.
constexpr const char* automountType = "autofs";

[[noreturn]] void refuse(const std::string& mountPoint, const std::string& problem) {
    throw CommandError(ExitCode::mountPoint, mountPoint, problem);
}

void refuseMounted(const std::string& mountPoint) {
    const auto mount = fusehost::findMount(fusehost::readMountTable(), mountPoint);
    if (!mount || mount->type == automountType)
        return;
    if (mount->type.starts_with("fuse") && fusehost::isStale(mountPoint)) {
        refuse(mountPoint, "a stale mount is left here (its process is gone: Transport endpoint is not connected); "
                           "clear it with: " +
                               std::string(mount->isOurs() ? "kemvi unmount " : "fusermount3 -u ") + mountPoint);
    }
    if (mount->isOurs()) {
        refuse(mountPoint,
               "is mounted already, from " + mount->source + "; unmount it first: kemvi unmount " + mountPoint);
    }
    refuse(mountPoint, "a file system of type " + mount->type + " is mounted here already; choose another directory");
}

/// The real path of a mount point on which nothing is mounted. The table is asked first, since looking at a mount whose
/// process hangs would hang too.
std::string resolvedMountPoint(const std::string& mountPoint) {
    const auto unresolved = realParentPath(mountPoint);
    if (unresolved)
        refuseMounted(*unresolved);
    const auto resolved = realPath(mountPoint);
    if (!resolved && errno == ENOENT)
        refuse(mountPoint, "does not exist; make an empty directory first: mkdir -p " + mountPoint);
    if (!resolved)
        refuse(mountPoint, "cannot be used as mount point: " + errnoText(errno));
    refuseMounted(*resolved);
    return *resolved;
}

void checkDirectory(const std::string& mountPoint, const fusehost::MountOptions& options) {
    std::error_code error;
    if (!filesystem::is_directory(mountPoint, error))
        refuse(mountPoint, "is not a directory; give an empty directory");
    if (::geteuid() != 0 && ::access(mountPoint.c_str(), W_OK) != 0)
        refuse(mountPoint, "you may not write to this directory, so you may not mount on it");
    const bool empty = filesystem::is_empty(mountPoint, error);
    if (error || !empty)
        refuseMounted(mountPoint); // by somebody who came between; what was listed is that mount
    if (error)
        refuse(mountPoint, "cannot be listed: " + error.message());
    if (!empty && !options.nonEmpty)
        refuse(mountPoint, "is not empty; give an empty directory, or hide what is in it with -o nonempty");
}

/// A helper that touches the mount it serves waits for itself. That happens where the mount lies inside the served
/// tree, and where it covers the files that the helper works with.
void checkSurroundings(const std::string& mountPoint, const MountSource& source) {
    const auto realOrEmpty = [](const std::string& path) {
        return filesystem::path(path).is_absolute() ? realPath(path).value_or("") : std::string();
    };
    const std::string served = realOrEmpty(source.config.repoRoot);
    if (!served.empty() && mountPoint != served && isWithin(mountPoint, served)) {
        refuse(mountPoint, "lies inside the served directory " + served +
                               ", so the helper would wait for itself; mount elsewhere, or have another directory "
                               "served: kemvi init --repo-root DIR");
    }
    std::vector<std::string> everythingNeeded{source.path, served, realOrEmpty(source.config.kemviHome),
                                              realOrEmpty(source.config.helperPath)};
    for (const std::string& word : source.command) // the program, and what it is given to work with
        everythingNeeded.push_back(realOrEmpty(word));
    for (const std::string& needed : everythingNeeded) {
        if (!needed.empty() && isWithin(needed, mountPoint)) {
            const bool isServed = !served.empty() && isWithin(needed, served);
            refuse(mountPoint, "would cover " + needed + ", which the helper needs; mount elsewhere" +
                                   (isServed ? ", or have another directory served: kemvi init --repo-root DIR" : ""));
        }
    }
}

bool userMayAllowOther() {
    std::ifstream file("/etc/fuse.conf");
    for (std::string line; std::getline(file, line);) {
        line.erase(0, line.find_first_not_of(" \t"));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (line == "user_allow_other")
            return true;
    }
    return false;
}

[[noreturn]] void refuseBeingMounted(const std::string& mountPoint) {
    std::string by;
    for (const auto& serving : servingProcesses())
        if (serving.mountPoint == mountPoint && !serving.deviceMinor)
            by = " by process " + std::to_string(serving.process.pid());
    refuse(mountPoint, "is being mounted" + by + " at this moment; wait until it is, or choose another directory");
}

} // namespace

MountPointLock::MountPointLock(const std::string& mountPoint)
    : directory_(::open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    if (!directory_.isOpen())
        refuse(mountPoint, "cannot be opened: " + errnoText(errno));
    // Some network file systems lock no directories; there, as with any other program, mounts may meet.
    if (::flock(directory_.number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        refuseMounted(mountPoint);
        refuseBeingMounted(mountPoint);
    }
    refuseMounted(mountPoint);
}

bool isAutomount(const std::string& mountPoint) {
    const auto mount = fusehost::findMount(fusehost::readMountTable(), mountPoint);
    return mount && mount->type == automountType;
}

std::string checkedMountPoint(const std::string& mountPoint, const MountSource& source,
                              const fusehost::MountOptions& options) {
    std::string resolved = resolvedMountPoint(mountPoint);
    checkDirectory(resolved, options);
    checkSurroundings(resolved, source);
    return resolved;
}

void checkFuseAvailable(const fusehost::MountOptions& options) {
    const auto unavailable = [](std::string_view subject, const std::string& problem) {
        throw CommandError(ExitCode::fuseUnavailable, subject, problem);
    };
    if (!foundation::Descriptor(::open("/dev/fuse", O_RDWR | O_CLOEXEC)).isOpen()) {
        unavailable("/dev/fuse", errno == ENOENT ? "does not exist; load the kernel module: modprobe fuse"
                                                 : "cannot be opened: " + errnoText(errno) +
                                                       "; root can let you with: chmod 666 /dev/fuse");
    }
    if (::geteuid() == 0)
        return;
    if (!findInPath("fusermount3")) {
        unavailable("fusermount3",
                    "is not in PATH, and an ordinary user cannot mount without it; install the package fuse3");
    }
    if (options.allowOther && !userMayAllowOther()) {
        unavailable("allow_other",
                    "is refused to ordinary users here; add the line user_allow_other to /etc/fuse.conf");
    }
}

} // namespace cli
