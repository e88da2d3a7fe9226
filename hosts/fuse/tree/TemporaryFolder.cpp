#include "hosts/fuse/tree/TemporaryFolder.h"

#include "foundation/UUID.h"
#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace fusehost {

using foundation::Descriptor;

namespace {

/// A closed one, with errno set, where it cannot be had.
Descriptor openUnnamed(const Descriptor& folder) {
    Descriptor unnamed(openat(folder.number(), ".", O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600));
    if (unnamed.isOpen() || (errno != EOPNOTSUPP && errno != EISDIR))
        return unnamed;
    // A file system that has no files without names.
    const std::string name = ".kemvi-temporary-" + foundation::UUID::random().uuidString();
    constexpr int flags = O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    Descriptor named(openat(folder.number(), name.c_str(), flags, 0600));
    if (named.isOpen())
        unlinkat(folder.number(), name.c_str(), 0);
    return named;
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    for (const char* path : {static_cast<const char*>(std::getenv("TMPDIR")), "/var/tmp", "/tmp"}) {
        if (path == nullptr || *path != '/')
            continue;
        Descriptor folder(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (folder.isOpen() && openUnnamed(folder).isOpen()) {
            folder_ = std::move(folder);
            return;
        }
    }
}

TemporaryFile TemporaryFolder::makeFile() const {
    if (!folder_.isOpen())
        throw KernelError(ENOSPC);
    Descriptor opened = openUnnamed(folder_);
    if (!opened.isOpen())
        throw KernelError(errno);
    TemporaryFile file(fdopen(opened.number(), "w+"));
    if (!file)
        throw KernelError(errno);
    (void)opened.release(); // the file's now
    return file;
}

} // namespace fusehost
