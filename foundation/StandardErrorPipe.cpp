#include "foundation/StandardErrorPipe.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace foundation {

Descriptor pipeAsStandardError() noexcept {
    PipeEnds pipe = openPipe();
    for (Descriptor* const end : {&pipe.reading, &pipe.writing})
        if (end->isOpen())
            *end = clearOfStandard(std::move(*end));
    if (!pipe.reading.isOpen() || !pipe.writing.isOpen())
        return {};
    // Without close-on-exec: children inherit it.
    if (::dup2(pipe.writing.number(), STDERR_FILENO) < 0)
        return {};
    return std::move(pipe.reading);
}

bool standardErrorLeadsNowhere() noexcept {
    struct stat error {};

    struct stat nowhere {};

    if (::fstat(STDERR_FILENO, &error) != 0)
        return true;
    return S_ISCHR(error.st_mode) && ::stat("/dev/null", &nowhere) == 0 && error.st_rdev == nowhere.st_rdev;
}

} // namespace foundation
