#include "control/Mailbox.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>

namespace control {

Mailbox::Mailbox() : wakes_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wakes_.isOpen())
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Mailbox::post(Delivery delivery) {
    {
        const std::lock_guard lock(mutex_);
        if (!closed_) {
            deliveries_.push_back(std::move(delivery));
            wake();
            return;
        }
    }
    cutOff(delivery);
}

void Mailbox::wake() noexcept {
    if (!woken_.exchange(true))
        ::eventfd_write(wakes_.number(), 1);
}

void Mailbox::clear() noexcept {
    eventfd_t ignored = 0;
    ::eventfd_read(wakes_.number(), &ignored);
    // What was made before a wake that is spared is seen by the look that follows this.
    woken_.exchange(false);
}

bool Mailbox::isThere(PeerNumber peer) const {
    const std::lock_guard lock(mutex_);
    return peers_.contains(peer);
}

std::vector<Mailbox::Delivery> Mailbox::take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(deliveries_, {});
}

void Mailbox::came(PeerNumber peer) {
    const std::lock_guard lock(mutex_);
    peers_.insert(peer);
}

void Mailbox::went(PeerNumber peer) {
    const std::lock_guard lock(mutex_);
    peers_.erase(peer);
}

void Mailbox::close() {
    std::vector<Delivery> late;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        peers_.clear();
        late = std::exchange(deliveries_, {});
    }
    for (auto& delivery : late)
        cutOff(delivery);
}

void Mailbox::cutOff(Delivery& delivery) noexcept {
    if (!delivery.stream)
        return;
    delivery.stream->cutOff();
    if (delivery.onGone)
        delivery.onGone();
}

} // namespace control
