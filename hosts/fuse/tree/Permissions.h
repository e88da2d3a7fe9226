#pragma once

#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <sys/types.h>

namespace fusehost {

/// Says what a caller may do to a node, by what the kernel was shown of it: that costs no question to the volume. For
/// mounts whose permissions the kernel does not check. Nobody but the owner reaches those, and the owner is refused
/// little; a server of files that works for another user by setfsuid is the other one who may be refused something.
/// Failures are KernelErrors.
class Permissions {
public:
    /// `isOurs`: whether permissions are checked here; otherwise everything is allowed.
    Permissions(Attributes& attributes, bool isOurs);

    /// EACCES unless `caller` may do all of `wanted`: R_OK, W_OK, X_OK. Root may do everything but execute a file
    /// that nobody may.
    void check(uid_t caller, Node& node, int wanted);
    /// EPERM for a change that only the owner may make.
    void checkOwner(uid_t caller, Node& node);

private:
    void learn(Node& node);

    Attributes& attributes_;
    const bool isOurs_;
};

} // namespace fusehost
