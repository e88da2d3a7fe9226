#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fusehost {

/// The file system type under which our mounts stand in the mount table.
inline constexpr std::string_view mountType = "fuse.kemvi";

/// One mount, as the kernel lists it.
struct MountEntry {
    unsigned deviceMajor = 0;
    unsigned deviceMinor = 0;
    std::string mountPoint;
    std::string type;
    std::string source;
    std::optional<unsigned> owner; // the user who mounted, where the file system tells

    bool isOurs() const { return type == mountType; }
};

/// Parses the text of a mountinfo file. Lines that do not have its form are skipped.
std::vector<MountEntry> parseMountInfo(std::string_view text);

/// The mounts that this process sees, oldest first. Throws foundation::Error if /proc cannot be read.
std::vector<MountEntry> readMountTable();

/// The topmost mount on exactly this absolute path.
std::optional<MountEntry> findMount(const std::vector<MountEntry>& table, std::string_view mountPoint);

/// True if whoever follows `path` now arrives on the file system with this device number: nothing lies on top of it
/// there. Never asks that file system anything.
bool leadsToDevice(const std::string& path, unsigned deviceMinor);

/// True if the process behind the FUSE mount at this path is gone. One that hangs is not gone: it is asked in a thread
/// that nobody waits for longer than two seconds.
bool isStale(const std::string& mountPoint);

/// The path by which our mount with this device number can be taken away: `expected`, or, where its folder was renamed
/// meanwhile, the only place where the table has it. Nothing where it is mounted no more or where another mount lies on
/// top of it.
std::optional<std::string> reachablePath(const std::vector<MountEntry>& table, unsigned deviceMinor,
                                         const std::string& expected);

} // namespace fusehost
