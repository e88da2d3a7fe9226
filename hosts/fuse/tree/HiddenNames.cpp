#include "hosts/fuse/tree/HiddenNames.h"

#include "foundation/UUID.h"

namespace fusehost {

HiddenNames::HiddenNames() : prefix_(".kemvi-hidden-" + foundation::UUID::random().uuidString().substr(0, 8) + "-") {}

std::string HiddenNames::next() {
    return prefix_ + std::to_string(next_++);
}

} // namespace fusehost
