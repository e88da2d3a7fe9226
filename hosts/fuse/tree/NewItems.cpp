#include "hosts/fuse/tree/NewItems.h"

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>

namespace fusehost {

using fskit::FSItemType;

NewItems::NewItems(VolumeCalls& volume, Nodes& nodes) : volume_(volume), nodes_(nodes) {}

FoundItem NewItems::make(const NameChange&, Node& directory, const std::string& name, FSItemType type, mode_t mode) {
    FoundItem made = volume_.create(nodes_.itemOf(directory), name, type);
    applyMode(made, mode);
    return made;
}

// New files are 0644 and new directories 0755 whatever was asked. Where the caller asked for less access for others,
// or for an executable, the helper is told; one that does not take modes is no reason to fail.
void NewItems::applyMode(const FoundItem& made, mode_t mode) {
    const mode_t usual = made.attributes.type() == FSItemType::directory ? 0755 : 0644;
    const mode_t withheld = usual & ~mode & 0077;
    const mode_t executable = mode & ~usual & 0111;
    if (withheld == 0 && executable == 0)
        return;
    fskit::FSItemSetAttributesRequest request;
    // The owner keeps what it takes to fill the file: the handles for that are opened later, and anew after each close.
    request.setMode((mode | (usual & 0700)) & 0777);
    try {
        volume_.setAttributes(made.item, request);
    } catch (const KernelError& error) {
        error.tell();
    }
}

FoundItem NewItems::makeSymbolicLink(const NameChange&, Node& directory, const std::string& name,
                                     const std::string& contents) {
    return volume_.createSymbolicLink(nodes_.itemOf(directory), name, contents);
}

FoundItem NewItems::makeLink(const NameChange&, Node& node, Node& directory, const std::string& name) {
    volume_.createLink(nodes_.itemOf(node), nodes_.itemOf(directory), name);
    return nodes_.find(directory, name);
}

void NewItems::refuseToMake(const NameChange&, Node& directory, const std::string& name) {
    volume_.create(nodes_.itemOf(directory), name, FSItemType::unknown); // the volume says why it cannot
    throw KernelError(EOPNOTSUPP);
}

} // namespace fusehost
