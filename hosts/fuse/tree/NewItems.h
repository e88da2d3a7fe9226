#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/Nodes.h"

#include <string>
#include <sys/stat.h>

namespace fusehost {

/// Makes what was not there: files, directories and links, with the mode that was asked for as far as the helper takes
/// modes. Makes no nodes (`Nodes::adopt`). Failures are KernelErrors.
class NewItems {
public:
    NewItems(VolumeCalls& volume, Nodes& nodes);

    /// A file, which is emptied if it is there after all, or a directory.
    FoundItem make(const NameChange&, Node& directory, const std::string& name, fskit::FSItemType type, mode_t mode);
    FoundItem makeSymbolicLink(const NameChange&, Node& directory, const std::string& name,
                               const std::string& contents);
    FoundItem makeLink(const NameChange&, Node& node, Node& directory, const std::string& name);
    /// For what no volume makes, such as devices: throws why not.
    [[noreturn]] void refuseToMake(const NameChange&, Node& directory, const std::string& name);

private:
    void applyMode(const FoundItem& made, mode_t mode);

    VolumeCalls& volume_;
    Nodes& nodes_;
};

} // namespace fusehost
