#pragma once

#include "foundation/Descriptor.h"

namespace fusehost {

/// An eventfd: readable once it was signalled, until it is cleared. Any thread may signal.
class EventDescriptor {
public:
    /// Throws std::system_error if the process can have no more descriptors.
    EventDescriptor();

    int number() const { return descriptor_.number(); }

    /// Async-signal-safe.
    void signal() const noexcept;
    void clear() const noexcept;

private:
    foundation::Descriptor descriptor_;
};

} // namespace fusehost
