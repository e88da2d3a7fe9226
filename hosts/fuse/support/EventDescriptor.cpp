#include "hosts/fuse/support/EventDescriptor.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace fusehost {

EventDescriptor::EventDescriptor() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!descriptor_.isOpen())
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

void EventDescriptor::signal() const noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(number(), &one, sizeof one);
}

void EventDescriptor::clear() const noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(number(), &count, sizeof count);
}

} // namespace fusehost
