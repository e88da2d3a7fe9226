#include "hosts/fuse/mounting/MountReason.h"

#include <array>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fusehost {

using foundation::Descriptor;

namespace {

struct KnownReason {
    std::string_view part; // of the line
    std::string_view words;
    bool withEnd = false; // what stands after the line's last colon, the system's reason, follows
};

// The first that fits counts.
constexpr std::array reasons = {
    KnownReason{"'user_allow_other'",
                "allow_other is refused to ordinary users here; add the line user_allow_other to /etc/fuse.conf"},
    KnownReason{"too many FUSE filesystems mounted", "as many FUSE file systems are mounted as this machine allows; "
                                                     "unmount one, or raise mount_max in /etc/fuse.conf"},
    KnownReason{"user has no write access to mountpoint",
                "you may not write to this directory, so you may not mount on it"},
    KnownReason{"not owned by user", "the directory belongs to somebody else, and stands where only its owner may "
                                     "mount on it; choose one of your own"},
    KnownReason{"mounting over filesystem type",
                "ordinary users may not mount on the type of file system that it lies on; choose another directory"},
    KnownReason{"not a directory or a regular file", "it is not a directory; give an empty directory"},
    KnownReason{"mountpoint moved", "the directory was renamed meanwhile; try again"},
    KnownReason{"device not found", "/dev/fuse does not exist; load the kernel module: modprobe fuse"},
    KnownReason{"/etc/mtab", "fusermount3 cannot read /etc/mtab; as root: ln -sfn ../proc/self/mounts /etc/mtab", true},
    KnownReason{"/dev/fuse", "/dev/fuse cannot be opened; root can let you with: chmod 666 /dev/fuse", true},
    KnownReason{"mount failed: Operation not permitted",
                "you may not mount: fusermount3 lacks its set-user-id bit (reinstall the package fuse3), or this is a "
                "container without the right to mount"},
    KnownReason{"mount failed: ", "the kernel refused the mount", true},
    KnownReason{"mount options too long", "the mount options are too long; shorten fsname="},
    KnownReason{"bad mount point", "the directory cannot be reached by fusermount3, which acts for you", true},
    KnownReason{"to mountpoint", "the directory cannot be entered", true},
    KnownReason{"access mountpoint", "the directory cannot be reached by fusermount3, which acts for you", true},
};

constexpr std::string_view programPrefix = "fusermount3: ";

std::string_view withoutProgram(std::string_view line) {
    for (const std::string_view prefix : {programPrefix, std::string_view("fusermount: "), std::string_view("fuse: ")})
        if (line.starts_with(prefix))
            return line.substr(prefix.size());
    return line;
}

/// "unsafe option suid ignored": no failure, and nothing that an ordinary user could change.
std::string ignoredOption(std::string_view line) {
    constexpr std::string_view before = "unsafe option ";
    constexpr std::string_view after = " ignored";
    if (!line.starts_with(before) || !line.ends_with(after))
        return {};
    const auto name = line.substr(before.size(), line.size() - before.size() - after.size());
    return "option \"" + std::string(name) + "\" is ignored: only root may use it";
}

void writeLine(std::string line) {
    line += '\n';
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace

std::string mountReason(std::string_view line) {
    line = withoutProgram(line);
    if (std::string ignored = ignoredOption(line); !ignored.empty())
        return ignored;
    for (const KnownReason& known : reasons) {
        if (line.find(known.part) == std::string_view::npos)
            continue;
        const auto colon = line.rfind(": ");
        if (!known.withEnd || colon == std::string_view::npos)
            return std::string(known.words);
        return std::string(known.words) + " (" + std::string(line.substr(colon + 2)) + ")";
    }
    return std::string(line);
}

GatheredErrors::GatheredErrors() {
    saved_ = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!saved_.isOpen())
        return;
    file_ = Descriptor(memfd_create("kemvi-errors", MFD_CLOEXEC));
    if (file_.isOpen())
        dup2(file_.number(), STDERR_FILENO);
}

GatheredErrors::~GatheredErrors() {
    finish();
}

std::string GatheredErrors::finish() {
    if (!saved_.isOpen())
        return {};
    dup2(saved_.number(), STDERR_FILENO);
    saved_.reset();
    if (!file_.isOpen())
        return {};
    std::string text;
    std::array<char, 4096> piece{};
    const auto readOn = [&] {
        return pread(file_.number(), piece.data(), piece.size(), static_cast<off_t>(text.size()));
    };
    for (ssize_t count = 0; (count = readOn()) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    file_.reset();
    std::string told;
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        if (line.starts_with(programPrefix))
            told += (told.empty() ? "" : "; ") + mountReason(line);
        else
            writeLine(line);
    }
    return told;
}

} // namespace fusehost
