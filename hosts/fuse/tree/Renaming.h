#pragma once

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Listings.h"

#include <string>

namespace fusehost {

/// Renames, replacing what has the new name as rename(2) does: whole, or not at all. What is replaced while open is
/// hidden. Failures are KernelErrors.
class Renaming {
public:
    Renaming(Changes& changes, Nodes& nodes, HiddenFiles& hidden, Listings& listings);

    /// `flags` are those of renameat2(2): none, or RENAME_NOREPLACE; EINVAL for others. May end the node that has the
    /// new name.
    void rename(Node& from, const std::string& name, Node& to, const std::string& newName, unsigned flags);

private:
    /// A directory for names that a rename works on.
    struct Place {
        Node& directory;
        const std::string& name;
    };

    void checkReplaceable(NameChange& change, bool movesDirectory, const Place& to);
    void replace(NameChange& change, const Nodes::Resolved& source, const Place& from, const Place& to);
    void renameOver(const NameChange& change, const Nodes::Resolved& source, const Place& from, const Place& to);
    void renameOverHidden(const NameChange& change, const Nodes::Resolved& source, const Place& from, const Place& to,
                          const KernelError& refusal);
    /// What has the name that a rename was refused for; throws the refusal if nothing has.
    FoundItem toBeReplaced(const Place& place, const KernelError& refusal);
    void noteRenamed(const NameChange& change, Node* node, const Place& to);

    Changes& changes_;
    Nodes& nodes_;
    HiddenFiles& hidden_;
    Listings& listings_;
};

} // namespace fusehost
