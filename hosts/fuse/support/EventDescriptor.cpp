#include "hosts/fuse/support/EventDescriptor.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace fusehost {

EventDescriptor::EventDescriptor() : number_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (number_ < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

EventDescriptor::~EventDescriptor() {
    close(number_);
}

void EventDescriptor::signal() const noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(number_, &one, sizeof one);
}

void EventDescriptor::clear() const noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(number_, &count, sizeof count);
}

} // namespace fusehost
