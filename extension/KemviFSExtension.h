#pragma once

#include "fskit/FSUnaryFileSystem.h"

#include <memory>

namespace kemvi {

/// The extension's entry type: a value without state.
struct KemviFSExtension {
    /// A new file system each time, with a container identifier of its own.
    std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem() const;
};

} // namespace kemvi
