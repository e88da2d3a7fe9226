#include "hosts/fuse/tree/Lookup.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

Lookup::Lookup(Nodes& nodes, HiddenFiles& hidden, Attributes& attributes, Absence& absence, Listings& listings,
               Seconds entryTimeout)
    : nodes_(nodes), hidden_(hidden), attributes_(attributes), absence_(absence), listings_(listings),
      entryTimeout_(entryTimeout) {}

TreeEntry Lookup::find(Node& directory, const std::string& name) {
    nodes_.checkName(name);
    hidden_.refuseHidden(directory, name);
    if (const auto told = listings_.told(directory, name, entryTimeout_))
        return *told;
    try {
        const FoundItem found = nodes_.find(directory, name);
        return attributes_.handOut(nodes_.adopt(directory, found), found.attributes);
    } catch (const KernelError& error) {
        if (error.number() == ENOENT)
            absence_.note(directory, name);
        throw;
    }
}

} // namespace fusehost
