#pragma once

#include "fskit/FSUnaryFileSystem.h"
#include "helper/HelperObserver.h"

#include <memory>

namespace kemvi {

/// The extension's entry type: a value without state.
struct KemviFSExtension {
    /// A new file system each time, with a container identifier of its own.
    std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem() const;

    /// The same with somebody to be told of the helpers that it starts, who must outlive it and its volumes.
    std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem(HelperObserver& observer) const;
};

} // namespace kemvi
