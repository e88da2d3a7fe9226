#include "hosts/fuse/tree/Absence.h"

#include <utility>

namespace fusehost {

Absence::Absence(bool isTrusted, Clock clock) : clock_(std::move(clock)), isTrusted_(isTrusted) {}

void Absence::note(const Node& directory, const std::string& name) {
    last_ = AbsentName{directory.id, name, clock_()};
}

std::optional<AbsentName> Absence::take() {
    return std::exchange(last_, std::nullopt);
}

bool Absence::tells(const AbsentName& absent, const Node& directory, const std::string& name) const {
    return isTrusted_ && absent.directory == directory.id && absent.name == name && clock_() - absent.seen < briefTrust;
}

} // namespace fusehost
