#pragma once

#include "foundation/Descriptor.h"

#include <cstdio>
#include <memory>

namespace fusehost {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using TemporaryFile = std::unique_ptr<std::FILE, CloseFile>;

/// Where temporary files are made: the first of $TMPDIR, /var/tmp and /tmp in which one can be. It is held open from
/// its construction on, which is before anything is mounted: a file in it never lies on the mount itself, whatever the
/// mount comes to cover. There, the thread that serves the mount would wait for itself for ever.
class TemporaryFolder {
public:
    TemporaryFolder();

    /// A file without a name, for reading and writing. Throws KernelError; ENOSPC where there is no such folder.
    TemporaryFile makeFile() const;

private:
    foundation::Descriptor folder_;
};

} // namespace fusehost
