#pragma once

#include "foundation/Log.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fusehost {

/// "debug", "info", "warning" or "error"; nothing for any other name.
std::optional<foundation::LogLevel> logLevelNamed(std::string_view name);

/// An option that is not known, lacks its value or has one out of range. The text names the option and what was
/// expected.
class MountOptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// How long something is trusted: with fractions, and as long as users like.
using Seconds = std::chrono::duration<double>;

/// What becomes of the mount when its volume has ended by itself.
enum class OnDeath {
    fail,   // it stays, and all operations fail
    exit,   // it ends too
    restart // it gets another volume
};

/// The settings of one mount, as `-o` gives them. Unset optionals mean "as the volume reports".
struct MountOptions {
    bool readOnly = false;
    bool allowOther = false;
    bool quiet = false;              // a chown that cannot be done succeeds silently
    bool writeback = false;          // the kernel gathers small writes; changes made behind the mount are seen late
    bool defaultPermissions = false; // the kernel checks permissions in any case
    bool placement = true;           // host and helper may be put on one processor while that is faster
    bool nonEmpty = false;           // the mount point may hold files, which the mount then hides
    bool closeToOpen = false;        // who opens a file sees its size and time as they are then
    Seconds entryTimeout{1};         // how long a name is trusted
    Seconds attrTimeout{1};          // how long attributes are trusted
    Seconds negativeTimeout{0};      // how long the absence of a name is trusted
    OnDeath onDeath = OnDeath::fail;
    std::optional<Seconds> operationTimeout;    // how long the volume is waited for; without limit otherwise
    std::uint32_t requestSize = 64 * 1024;      // most bytes of one read or write of the helper
    std::optional<std::uint32_t> fileMask;      // permission bits taken from 0777 for files
    std::optional<std::uint32_t> directoryMask; // the same for directories
    std::optional<std::uint32_t> uid;
    std::optional<std::uint32_t> gid;
    std::optional<std::string> fsname;            // the device shown in the mount table; the source directory otherwise
    std::optional<std::string> logFile;           // where the log goes; the embedding program's choice otherwise
    std::optional<foundation::LogLevel> logLevel; // the least level that is logged
    bool showPrivate = false;                     // private values are written out in the log
    std::vector<std::string> kernelOptions; // nosuid, nodev, noexec, noatime, ...: handed to the mount as they are

    /// Whether the kernel is to check permissions against what is shown: where others than the owner get in, or it is
    /// not the volume alone that says what is shown. It asks for a directory's attributes after each change in it then.
    bool kernelChecksPermissions() const;

    /// Adds one `-o` argument: options separated by commas (see OptionList.h); later ones win. Options that only
    /// mount(8) and systemd read (defaults, auto, noauto, user, _netdev, x-..., nofail), and those that other FUSE file
    /// systems take and this one needs not (auto_unmount, big_writes, kernel_cache, max_read=), are accepted and
    /// ignored. Looks names of users and groups up. Throws MountOptionError.
    void add(std::string_view commaSeparated);
};

} // namespace fusehost
