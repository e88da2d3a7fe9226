#pragma once

#include "hosts/fuse/tree/NodeTable.h"

#include <span>
#include <string_view>

namespace fusehost {

/// The path of a node, and of `name` in it if that is not empty, from the root of the mount ("/a/b"). Written into
/// `room`, from its end; what does not fit lacks its front. One that has lost its name begins with "(removed)/" and the
/// name that it had. For people to read, and quick: it is made for every request.
std::string_view pathOf(const Node& node, std::string_view name, std::span<char> room);

} // namespace fusehost
