#pragma once

#include "hosts/fuse/tree/AttributeChanges.h"
#include "hosts/fuse/tree/Creation.h"
#include "hosts/fuse/tree/Durability.h"
#include "hosts/fuse/tree/FileAccess.h"
#include "hosts/fuse/tree/FileTree.h"
#include "hosts/fuse/tree/Listings.h"
#include "hosts/fuse/tree/Lookup.h"
#include "hosts/fuse/tree/Opening.h"
#include "hosts/fuse/tree/OutsideChanges.h"
#include "hosts/fuse/tree/Permissions.h"
#include "hosts/fuse/tree/Removal.h"
#include "hosts/fuse/tree/Renaming.h"
#include "hosts/fuse/tree/VolumeChange.h"

namespace fusehost {

/// All rooms of one tree. Each is given those above it that it needs; none reaches down.
struct FileTree::Rooms {
    /// Some megabytes, where the kernel remembers absent names at all.
    static constexpr std::size_t mostToldAbsences = 50'000;

    Rooms(VolumeCalls& itsVolume, const MountOptions& options, const Clock& clock)
        : volume(itsVolume), attributeMap(options), freshness(options.attrTimeout, clock),
          absence(options.entryTimeout > Seconds(0) && options.negativeTimeout <= Seconds(0), clock),
          toldAbsences(options.negativeTimeout, mostToldAbsences, clock), handles(volume, table, options.attrTimeout),
          permissions(attributes, !options.kernelChecksPermissions()),
          contents(nodes, handles, freshness, options.requestSize),
          attributeChanges(changes, nodes, attributes, resizing, options.quiet),
          files(nodes, handles, hidden, options.writeback),
          lookup(nodes, hidden, attributes, absence, listings, options.entryTimeout) {}

    VolumeCalls& volume;
    const AttributeMap attributeMap;
    NodeTable table;
    HiddenNames hiddenNames;
    Freshness freshness;
    Absence absence;
    ToldAbsences toldAbsences;
    VolumeHandles handles;
    Nodes nodes{volume, table, handles};
    Changes changes{handles, freshness, absence};
    Attributes attributes{volume, nodes, freshness, attributeMap};
    Permissions permissions;
    Contents contents;
    HiddenFiles hidden{nodes, handles, freshness, hiddenNames};
    Durability durability{nodes, handles, attributes};
    NewItems newItems{volume, nodes};
    HeadCopies headCopies{changes, nodes, newItems, hiddenNames};
    Shrinking shrinking{nodes, contents, durability, headCopies};
    Resizing resizing{nodes, handles, attributes, contents, shrinking};
    AttributeChanges attributeChanges;
    OpenFiles files;
    Opening opening{nodes, handles, resizing, files};
    FileAccess access{files, handles, contents};
    Listings listings{volume, nodes, hidden, attributes, freshness};
    Lookup lookup;
    Creation creation{changes, nodes, hidden, newItems, attributes, opening};
    Removal removal{changes, nodes, hidden, listings};
    Renaming renaming{changes, nodes, hidden, listings};
    OutsideChanges outsideChanges{nodes, contents, freshness, absence, toldAbsences};
    VolumeChange volumeChange{volume, table, handles, freshness, absence, hidden, durability, listings};
};

} // namespace fusehost
