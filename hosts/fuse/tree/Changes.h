#pragma once

#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Freshness.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/VolumeHandles.h"

#include <optional>
#include <string>

namespace fusehost {

/// What a change concerns besides the files that it changes.
struct Changes {
    VolumeHandles& handles;
    Freshness& freshness;
    Absence& absence;
};

/// Begins a change of files: its construction closes what was read and waits to be closed. The volume keeps that by
/// path, and would take it for what is open of the file that has the path afterwards. To be constructed before anything
/// else is asked of the volume; throws nothing.
class FileChange {
public:
    explicit FileChange(Changes& changes) { changes.handles.closeAllUnused(); }

    FileChange(const FileChange&) = delete;
    FileChange& operator=(const FileChange&) = delete;
};

/// Begins a change of names in one or two directories: drops as well what was trusted, and notes the change in the
/// directories, whatever comes of it: a helper that fails may have done it all the same. Functions that carry such a
/// change out want one as a sign that it was begun.
class NameChange : public FileChange {
public:
    NameChange(Changes& changes, Node& directory);
    NameChange(Changes& changes, Node& from, Node& to);

    /// Whether the lookup before the change has found the name missing, just now. To be asked once: by then it is a
    /// question too old.
    bool knowsAbsent(const Node& directory, const std::string& name);

    /// What has the name; asked of the helper unless the lookup before tells. As `Nodes::seek`.
    std::optional<FoundItem> existing(Nodes& nodes, Node& directory, const std::string& name);

    /// Notes that the change has changed the node too.
    void note(Node& node) const { changes_.freshness.noteChange(node); }

private:
    Changes& changes_;
    std::optional<AbsentName> absent_;
};

} // namespace fusehost
