#pragma once

#include "hosts/fuse/placement/Tasks.h"

namespace fusehost {

/// For when a host has died without putting back what it had placed on a processor: every thread of the family (a
/// process and its descendants) that may run on that one alone gets what the calling thread has. Changes nothing if
/// the calling thread itself has no other.
void giveBackAfterDeath(Tasks& tasks, pid_t family, int processor);

} // namespace fusehost
