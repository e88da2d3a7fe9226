#include "hosts/fuse/tree/Lookup.h"

#include <utility>

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
    SoughtItem sought = nodes_.seek(directory, name);
    if (!sought.found)
        absence_.note(directory, name);
    const FoundItem found = std::move(sought).orThrow();
    return attributes_.handOut(nodes_.adopt(directory, found), found.attributes);
}

} // namespace fusehost
