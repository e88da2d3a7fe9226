#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The file system type under which our mounts stand in the mount table.
inline constexpr std::string_view mountType = "fuse.kemvi";

/// One mount, as the kernel lists it.
struct MountEntry {
    unsigned deviceMajor = 0;
    unsigned deviceMinor = 0;
    std::string mountPoint;
    std::string type;
    std::string source;

    bool isOurs() const { return type == mountType; }
};

/// Parses the text of a mountinfo file. Lines that do not have its form are skipped.
std::vector<MountEntry> parseMountInfo(std::string_view text);

/// The mounts that this process sees, oldest first. Throws CommandError if /proc cannot be read.
std::vector<MountEntry> readMountTable();

/// The topmost mount on exactly this absolute path.
std::optional<MountEntry> findMount(const std::vector<MountEntry>& table, std::string_view mountPoint);

} // namespace cli
