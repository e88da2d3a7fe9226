#include "foundation/FileContents.h"

#include "foundation/Descriptor.h"
#include "foundation/Error.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation {
namespace {

[[noreturn]] void throwUnreadable(const std::string& path, int code, std::string_view reason) {
    std::string message = "The file \"" + path + "\" couldn't be opened because " + std::string(reason) + ".";
    throw NSErrorException(NSError{std::string(NSCocoaErrorDomain), code, std::move(message), {}});
}

[[noreturn]] void throwForErrno(const std::string& path, int error) {
    switch (error) {
    case ENOENT: throwUnreadable(path, cocoaError::fileReadNoSuchFile, "there is no such file");
    case EACCES:
    case EPERM: throwUnreadable(path, cocoaError::fileReadNoPermission, "you don't have permission to view it");
    default: throwUnreadable(path, cocoaError::fileReadUnknown, std::strerror(error));
    }
}

} // namespace

std::string contentsOfFile(const std::string& path) {
    // Without O_NONBLOCK a named pipe would keep the caller waiting for a writer.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen())
        throwForErrno(path, errno);

    struct stat status {};

    if (::fstat(file.number(), &status) != 0)
        throwForErrno(path, errno);
    if (!S_ISREG(status.st_mode))
        throwUnreadable(path, cocoaError::fileReadUnknown, "it is not a regular file");

    std::string contents;
    char block[16384];
    for (;;) {
        const ssize_t count = ::read(file.number(), block, sizeof block);
        if (count > 0)
            contents.append(block, static_cast<std::size_t>(count));
        else if (count == 0)
            return contents;
        else if (errno != EINTR)
            throwForErrno(path, errno);
    }
}

} // namespace foundation
