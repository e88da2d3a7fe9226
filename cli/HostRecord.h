#pragma once

#include "cli/HeldProcess.h"
#include "foundation/Descriptor.h"

#include <ctime>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli {

/// What a process that serves a mount holds open, so that other commands recognise it: a file in memory that names its
/// mount. It vanishes with the process, needs no place on a disk, and says the same to every copy and version of the
/// program. It also says where the mount's control channel is. Not thread-safe.
class HostRecord {
public:
    /// A mount at this real path is being made; it has no device number yet. `controlPath` is the socket of its control
    /// channel, empty if it has none. Throws CommandError.
    explicit HostRecord(const std::string& mountPoint, const std::string& controlPath = {});

    /// Names the minor device number of the mount, or, with nothing, says that it is mounted no more.
    void setDevice(std::optional<unsigned> deviceMinor);

private:
    foundation::Descriptor descriptor_;
};

/// A process that holds such a record.
struct ServingProcess {
    HeldProcess process;
    uid_t owner = 0;
    std::string mountPoint;
    std::optional<unsigned> deviceMinor;
    std::string controlPath; // of its control channel; empty if it has none
    timespec noted{};        // when it wrote the device number
};

/// The processes that hold a record, as far as this user may look into them. Nobody can have another user's process
/// taken for one: the record must belong to the user whose process holds it. No two of a user have the same device
/// number: the kernel gives it away again once a mount is gone, which a process that is stopped, or ends just now, has
/// not noted yet.
std::vector<ServingProcess> servingProcesses();

} // namespace cli
