#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <sys/types.h>

namespace fusehost {

/// A change of attributes; absent members stay as they are.
struct AttributeChange {
    std::optional<std::uint64_t> size;
    std::optional<mode_t> mode;
    std::optional<uid_t> uid;
    std::optional<gid_t> gid;
    std::optional<timespec> modifyTime;
};

} // namespace fusehost
