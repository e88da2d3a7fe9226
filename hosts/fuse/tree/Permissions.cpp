#include "hosts/fuse/tree/Permissions.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace fusehost {
namespace {

constexpr uid_t root = 0;
constexpr int ownerShift = 6;
constexpr int groupShift = 3;
constexpr int allBits = R_OK | W_OK | X_OK;

int allowedToRoot(const Node& node) {
    const bool isExecutable = node.isDirectory() || (node.shownMode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    return isExecutable ? allBits : R_OK | W_OK;
}

// Who is not the owner may be of the group or not; a request does not tell of all groups of its caller.
int allowedTo(uid_t caller, const Node& node) {
    if (caller == root)
        return allowedToRoot(node);
    if (caller == node.shownOwner)
        return node.shownMode >> ownerShift & allBits;
    return node.shownMode & node.shownMode >> groupShift & allBits;
}

} // namespace

Permissions::Permissions(Attributes& attributes, bool isOurs) : attributes_(attributes), isOurs_(isOurs) {}

void Permissions::learn(Node& node) {
    if (node.shownMode == 0)
        attributes_.ask(node);
}

void Permissions::check(uid_t caller, Node& node, int wanted) {
    if (!isOurs_)
        return;
    learn(node);
    if ((wanted & ~allowedTo(caller, node)) != 0)
        throw KernelError(EACCES);
}

void Permissions::checkOwner(uid_t caller, Node& node) {
    if (!isOurs_)
        return;
    learn(node);
    if (caller != root && caller != node.shownOwner)
        throw KernelError(EPERM);
}

} // namespace fusehost
