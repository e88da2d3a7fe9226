#include "foundation/Pipe.h"

#include "foundation/PosixErrno.h"

#include <cerrno>
#include <fcntl.h>
#include <utility>

namespace foundation {
namespace {

constexpr int wantedCapacity = 1 << 20;

void setUp([[maybe_unused]] const Descriptor& writing) {
#ifdef __linux__
    // Refused beyond the user's limit; the pipe then keeps its ordinary size.
    (void)::fcntl(writing.number(), F_SETPIPE_SZ, wantedCapacity);
#else
    (void)wantedCapacity;
#endif
#ifdef F_SETNOSIGPIPE
    (void)::fcntl(writing.number(), F_SETNOSIGPIPE, 1);
#endif
}

} // namespace

Pipe::Ends Pipe::makeEnds() noexcept {
    PipeEnds pipe = openPipe();
    if (!pipe.reading.isOpen())
        return {{}, darwinErrno(errno)};
    for (Descriptor* const end : {&pipe.reading, &pipe.writing}) {
        *end = clearOfStandard(std::move(*end));
        if (!end->isOpen())
            return {{}, darwinErrno(errno)};
    }
    setUp(pipe.writing);
    return {std::move(pipe), 0};
}

Pipe::Pipe() noexcept : Pipe(makeEnds()) {}

Pipe::Pipe(Ends ends)
    : reading_(std::move(ends.pipe.reading)), writing_(std::move(ends.pipe.writing)), creationError_(ends.error) {}

} // namespace foundation
