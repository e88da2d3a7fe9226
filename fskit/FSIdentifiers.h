#pragma once

#include "foundation/UUID.h"

namespace fskit {

/// A UUID that names a container or a volume. The two kinds are separate types so that one is not passed for the
/// other.
class FSEntityIdentifier {
public:
    explicit FSEntityIdentifier(foundation::UUID uuid) : uuid_(uuid) {}

    const foundation::UUID& uuid() const { return uuid_; }

    friend bool operator==(const FSEntityIdentifier&, const FSEntityIdentifier&) = default;

private:
    foundation::UUID uuid_;
};

class FSContainerIdentifier : public FSEntityIdentifier {
public:
    using FSEntityIdentifier::FSEntityIdentifier;
};

class FSVolumeIdentifier : public FSEntityIdentifier {
public:
    using FSEntityIdentifier::FSEntityIdentifier;
};

} // namespace fskit
