#include "hosts/fuse/tree/TemporaryFolder.h"

#include "foundation/UUID.h"
#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace fusehost {
namespace {

/// A descriptor, or -1 with errno set.
int openUnnamed(int folder) {
    const int unnamed = openat(folder, ".", O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600);
    if (unnamed >= 0 || (errno != EOPNOTSUPP && errno != EISDIR))
        return unnamed;
    // A file system that has no files without names.
    const std::string name = ".kemvi-temporary-" + foundation::UUID::random().uuidString();
    const int named = openat(folder, name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (named >= 0)
        unlinkat(folder, name.c_str(), 0);
    return named;
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    for (const char* path : {static_cast<const char*>(std::getenv("TMPDIR")), "/var/tmp", "/tmp"}) {
        if (path == nullptr || *path != '/')
            continue;
        descriptor_ = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor_ < 0)
            continue;
        if (const int file = openUnnamed(descriptor_); file >= 0) {
            close(file);
            return;
        }
        close(descriptor_);
        descriptor_ = -1;
    }
}

TemporaryFolder::~TemporaryFolder() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

TemporaryFile TemporaryFolder::makeFile() const {
    if (descriptor_ < 0)
        throw KernelError(ENOSPC);
    const int opened = openUnnamed(descriptor_);
    if (opened < 0)
        throw KernelError(errno);
    TemporaryFile file(fdopen(opened, "w+"));
    if (!file) {
        const int error = errno;
        close(opened);
        throw KernelError(error);
    }
    return file;
}

} // namespace fusehost
