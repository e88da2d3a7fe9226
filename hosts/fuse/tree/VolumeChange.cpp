#include "hosts/fuse/tree/VolumeChange.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/Quietly.h"

#include <cerrno>
#include <vector>

namespace fusehost {

VolumeChange::VolumeChange(VolumeCalls& volume, NodeTable& table, VolumeHandles& handles, Freshness& freshness,
                           Absence& absence, HiddenFiles& hidden, Durability& durability, Listings& listings)
    : volume_(volume), table_(table), handles_(handles), freshness_(freshness), absence_(absence), hidden_(hidden),
      durability_(durability), listings_(listings) {}

void VolumeChange::leave() noexcept {
    quietly("making files safe", [&] {
        std::vector<NodeID> written; // by number, since a file that turns out to be gone ends its node
        table_.forEach([&](const Node& node) {
            if (node.writers > 0 && node.safety == Safety::due)
                written.push_back(node.id);
        });
        for (const NodeID id : written)
            if (Node* node = table_.find(id))
                makeSafe(*node);
    });
    quietly("closing files", [&] {
        handles_.closeAllUnused();
        table_.forEach([&](Node& node) {
            if (node.isOpen())
                handles_.closeEverything(node);
        });
    });
    handles_.forgetAll();
}

void VolumeChange::makeSafe(Node& node) {
    const NodeID id = node.id;
    try {
        durability_.makeSafe(node);
    } catch (const KernelError& error) {
        error.tell(); // the program that is told later gets the number alone
        if (Node* left = table_.find(id))
            left->deferredError.keep(error.number());
    }
}

void VolumeChange::lose() {
    handles_.forgetAll();
    table_.forEach([](Node& node) {
        if (node.safety != Safety::due)
            return;
        if (node.writers > 0)
            node.deferredError.keep(EIO);
        else
            node.isUnconfirmed = true;
    });
}

void VolumeChange::take() {
    listings_.forgetRecent();
    freshness_.forgetShown();
    absence_.take();
    // Counted as a change of each node: an older listing tells their names, and nothing else of them.
    table_.forEach([&](Node& node) {
        node.item.reset();
        node.hasPlainPath = false;
        freshness_.noteChange(node);
    });
    table_.root().item = volume_.activate();
    quietly("removing files that were kept since they were open", [&] { hidden_.removeUnused(); });
}

} // namespace fusehost
