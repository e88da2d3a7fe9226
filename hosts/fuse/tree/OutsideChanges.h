#pragma once

#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Contents.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/ToForget.h"
#include "hosts/fuse/tree/ToldAbsences.h"

#include <string_view>

namespace fusehost {

/// Changes made behind the mount that the tree is told of. What it trusts of them is dropped: the next question about
/// them goes to the volume. Asks the volume for nothing; handles stay open, since a descriptor belongs to its file.
/// Throws nothing but std::bad_alloc.
class OutsideChanges {
public:
    OutsideChanges(Nodes& nodes, Contents& contents, Freshness& freshness, Absence& absence, ToldAbsences& absences);

    /// Something was made, removed, replaced or written at this path of the served tree (with or without a slash in
    /// front), or anywhere beneath it. Adds to `toForget` what the kernel may know of that. A path that leads nowhere
    /// is no error: that it does is known too.
    void note(std::string_view path, ToForget& toForget);

private:
    /// The last node on the way to a path that is known, and the name where the way ends; empty at the path itself.
    struct Place {
        Node* node;
        std::string unknown;
    };

    Place placeOf(std::string_view path);
    void noteName(Node& directory, const std::string& name, bool isFile, ToForget& toForget);
    void noteEverything(Node& node, ToForget& toForget);
    void noteNode(Node& node, ToForget& toForget);

    Nodes& nodes_;
    Contents& contents_;
    Freshness& freshness_;
    Absence& absence_;
    ToldAbsences& absences_;
};

} // namespace fusehost
