#pragma once

#include "hosts/fuse/kernel/KernelRequest.h"
#include "hosts/fuse/monitor/KernelOperation.h"
#include "hosts/fuse/monitor/RequestListener.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace fusehost {

/// What a request that is not yet executed says of itself. Refers to the request's memory.
struct RequestHead {
    KernelOperation operation = KernelOperation::other;
    std::uint32_t opcode = 0;
    std::uint64_t node = 0; // 0 if it is about none
    std::string_view name;  // in that node; empty if there is none
    std::uint32_t thread = 0;
    std::uint32_t user = 0;
};

/// Quick: it is asked for every request.
RequestHead headOf(const KernelRequest& request);

/// The rest, by names that are the same for every request of a kind: "offset", "size", "flags", "mode", ... Numbers of
/// nodes are left out: a rename's "newParent" and a link's "node" are told by `nodeArgument`.
std::vector<RequestEvent::Argument> argumentsOf(const KernelRequest& request);

/// The node that a request names besides its own, and the name in it: what a rename makes of a file, what a link is
/// made of. Node 0 if there is none.
struct NodeArgument {
    const char* argument = nullptr; // what it is called among the arguments
    std::uint64_t node = 0;
    std::string_view name;
};

NodeArgument nodeArgumentOf(const KernelRequest& request);

} // namespace fusehost
