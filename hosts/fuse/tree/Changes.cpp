#include "hosts/fuse/tree/Changes.h"

#include <utility>

namespace fusehost {

NameChange::NameChange(Changes& changes, Node& directory)
    : FileChange(changes), changes_(changes), absent_(changes.absence.take()) {
    note(directory);
}

NameChange::NameChange(Changes& changes, Node& from, Node& to) : NameChange(changes, from) {
    note(to);
}

bool NameChange::knowsAbsent(const Node& directory, const std::string& name) {
    const std::optional<AbsentName> absent = std::exchange(absent_, std::nullopt);
    return absent && changes_.absence.tells(*absent, directory, name);
}

std::optional<FoundItem> NameChange::existing(Nodes& nodes, Node& directory, const std::string& name) {
    return knowsAbsent(directory, name) ? std::nullopt : nodes.seek(directory, name).found;
}

} // namespace fusehost
