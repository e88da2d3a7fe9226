#pragma once

#include "foundation/Descriptor.h"

#include <csignal>

namespace cli::check {

/// Signals as something to poll(2) for. They must be blocked in all threads. Not thread-safe.
class StopSignals {
public:
    /// `isOpen()` is false, and errno says why, if the process can have no descriptor for it.
    explicit StopSignals(const sigset_t& signals);

    bool isOpen() const { return source_.isOpen(); }

    /// Ready for reading once one has come.
    int descriptor() const { return source_.number(); }

    /// Takes one that has come; false if there is none.
    bool take();

private:
    foundation::Descriptor source_;
};

} // namespace cli::check
