#include "foundation/Pipe.h"

#include "foundation/PosixErrno.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace foundation {
namespace {

constexpr int wantedCapacity = 1 << 20;
constexpr int firstFreeDescriptor = 3;

int makePipe(int (&ends)[2]) {
#ifdef __linux__
    return ::pipe2(ends, O_CLOEXEC);
#else
    return ::pipe(ends);
#endif
}

// A process whose standard descriptors are closed would get one of their numbers, which the launch of a child
// overwrites. Gives up `descriptor`; -1 on failure.
int movedClearOfStandard(int descriptor) {
    if (descriptor >= firstFreeDescriptor)
        return descriptor;
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, firstFreeDescriptor);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return moved;
}

void setUp(int reading, int writing) {
#ifdef __linux__
    (void)reading;
    // Refused beyond the user's limit; the pipe then keeps its ordinary size.
    (void)::fcntl(writing, F_SETPIPE_SZ, wantedCapacity);
#else
    (void)wantedCapacity;
    (void)::fcntl(reading, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(writing, F_SETFD, FD_CLOEXEC);
#endif
#ifdef F_SETNOSIGPIPE
    (void)::fcntl(writing, F_SETNOSIGPIPE, 1);
#endif
}

} // namespace

Pipe::Ends Pipe::makeEnds() noexcept {
    int ends[2];
    if (makePipe(ends) != 0)
        return {-1, -1, darwinErrno(errno)};
    const int reading = movedClearOfStandard(ends[0]);
    const int readingError = errno;
    const int writing = movedClearOfStandard(ends[1]);
    if (reading < 0 || writing < 0) {
        const int error = reading < 0 ? readingError : errno;
        if (reading >= 0)
            ::close(reading);
        if (writing >= 0)
            ::close(writing);
        return {-1, -1, darwinErrno(error)};
    }
    setUp(reading, writing);
    return {reading, writing, 0};
}

Pipe::Pipe() noexcept : Pipe(makeEnds()) {}

Pipe::Pipe(Ends ends) : reading_(ends.reading), writing_(ends.writing), creationError_(ends.error) {}

} // namespace foundation
