#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/Absence.h"
#include "hosts/fuse/tree/Durability.h"
#include "hosts/fuse/tree/Freshness.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Listings.h"
#include "hosts/fuse/tree/NodeTable.h"
#include "hosts/fuse/tree/VolumeHandles.h"

namespace fusehost {

/// What becomes of the tree when another volume takes the place of the one that it shows. The kernel keeps what it has
/// in hand: nodes keep their numbers and names, and look up again which item they have when they are next used; open
/// files open their handles again, as after a rename; an open directory goes on with the listing that it has. Nothing
/// else that was known of the former volume is believed of the next.
class VolumeChange {
public:
    VolumeChange(VolumeCalls& volume, NodeTable& table, VolumeHandles& handles, Freshness& freshness, Absence& absence,
                 HiddenFiles& hidden, Durability& durability, Listings& listings);

    /// The volume is to go in good order: makes safe what is open and written, and closes what is open. A failure is
    /// kept for the file's next fsync or flush.
    void leave() noexcept;
    /// The volume has ended by itself. What it had accepted and was not told to make safe may be lost, and somebody
    /// must be told: whoever has the file open for writing by its next fsync or close; else whoever asks next for it to
    /// be made safe.
    void lose();
    // After either, nothing is asked of the volume by any thread.

    /// The volume is another one. Throws KernelError if it cannot be activated.
    void take();

private:
    void makeSafe(Node& node);

    VolumeCalls& volume_;
    NodeTable& table_;
    VolumeHandles& handles_;
    Freshness& freshness_;
    Absence& absence_;
    HiddenFiles& hidden_;
    Durability& durability_;
    Listings& listings_;
};

} // namespace fusehost
