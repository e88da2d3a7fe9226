#pragma once

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "fskit/FSFileName.h"
#include "fskit/FSVolume.h"
#include "volume/KemviItem.h"

#include <string_view>

// The checks of arguments that the volume's operations share.
namespace kemvi {

/// The item as one of this volume's; throws `darwinErrno` for null and for items of another class.
inline const KemviItem& checkedItem(const fskit::FSItemPtr& item, std::int32_t darwinErrno) {
    const auto* known = dynamic_cast<const KemviItem*>(item.get());
    if (!known)
        foundation::throwPosix(darwinErrno);
    return *known;
}

/// The same for an item that must also be a directory.
inline const KemviItem& checkedDirectory(const fskit::FSItemPtr& item, std::int32_t darwinErrno) {
    const KemviItem& known = checkedItem(item, darwinErrno);
    if (!known.isDirectory())
        foundation::throwPosix(darwinErrno);
    return known;
}

/// The text of a name; throws EINVAL if it has none or is empty. Valid as long as the name.
inline std::string_view checkedName(const fskit::FSFileName& name) {
    const auto text = name.string();
    if (!text || text->empty())
        foundation::throwPosix(foundation::posixErrno::EINVAL_);
    return *text;
}

/// The text of a name to be given to an item; throws EINVAL also for "." and "..".
inline std::string_view checkedNewName(const fskit::FSFileName& name) {
    const std::string_view text = checkedName(name);
    if (text == "." || text == "..")
        foundation::throwPosix(foundation::posixErrno::EINVAL_);
    return text;
}

} // namespace kemvi
