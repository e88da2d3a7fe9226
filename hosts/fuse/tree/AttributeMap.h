#pragma once

#include "fskit/FSItem.h"
#include "hosts/fuse/mounting/MountOptions.h"

#include <cstdint>
#include <optional>
#include <sys/stat.h>

namespace fusehost {

/// Shows a volume's attributes as the kernel's, with the changes that the mount options ask for.
class AttributeMap {
public:
    explicit AttributeMap(const MountOptions& options);

    struct stat map(const fskit::FSItemAttributes& attributes) const;

private:
    std::optional<std::uint32_t> fileMask_;
    std::optional<std::uint32_t> directoryMask_;
    std::optional<std::uint32_t> uid_;
    std::optional<std::uint32_t> gid_;
};

/// The kernel's file-type bits (S_IFMT) for an item type.
mode_t typeBits(fskit::FSItemType type);

} // namespace fusehost
