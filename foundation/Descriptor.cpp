#include "foundation/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace foundation {
namespace {

int makePipe(int (&ends)[2]) {
#ifdef __linux__
    return ::pipe2(ends, O_CLOEXEC);
#else
    const int result = ::pipe(ends);
    if (result == 0)
        for (const int end : ends)
            (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
    return result;
#endif
}

} // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    Descriptor previous(std::exchange(number_, other.release()));
    return *this;
}

void Descriptor::reset() noexcept {
    const int error = errno;
    (void)close();
    errno = error;
}

bool Descriptor::close() noexcept {
    // Not tried again after an interruption: the number may belong to another thread's file by then.
    return number_ < 0 || ::close(release()) == 0;
}

Descriptor clearOfStandard(Descriptor descriptor) noexcept {
    constexpr int firstFree = 3;
    if (descriptor.number() >= firstFree)
        return descriptor;
    return Descriptor(::fcntl(descriptor.number(), F_DUPFD_CLOEXEC, firstFree));
}

PipeEnds openPipe() noexcept {
    int ends[2];
    if (makePipe(ends) != 0)
        return {};
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

} // namespace foundation
