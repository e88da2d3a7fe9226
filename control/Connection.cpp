#include "control/Connection.h"

#include "control/ControlServer.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace control {

namespace {

constexpr std::size_t pieceSize = std::size_t{64} << 10;

} // namespace

Connection::~Connection() {
    Mailbox::cutOff(following_);
}

/// What a peer has not read of its answers holds up its next questions.
bool Connection::takesRequests() const {
    return !asked_ && !following_.stream && !finishing_ && !gone_ && outgoing_.size() - sent_ < pieceSize;
}

short Connection::events() const {
    const bool reads = takesRequests() && !inputEnded_;
    return static_cast<short>((reads ? POLLIN : 0) | (sent_ < outgoing_.size() ? POLLOUT : 0));
}

void Connection::receive() {
    incoming_.erase(0, taken_);
    searched_ -= taken_;
    taken_ = 0;
    const auto before = incoming_.size();
    incoming_.resize(before + pieceSize);
    const auto count = ::recv(socket_.number(), incoming_.data() + before, pieceSize, MSG_DONTWAIT);
    const int error = errno;
    incoming_.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count == 0)
        inputEnded_ = true;
    else if (count < 0 && error != EAGAIN && error != EINTR)
        gone_ = true;
}

bool Connection::hasRequest() {
    searched_ = std::min(incoming_.find('\n', searched_), incoming_.size());
    return takesRequests() && searched_ < incoming_.size();
}

std::optional<std::string_view> Connection::nextRequest() {
    if (!hasRequest())
        return std::nullopt;
    const auto end = searched_;
    const auto line = std::string_view(incoming_).substr(taken_, end - taken_);
    taken_ = searched_ = end + 1;
    asked_ = true;
    return line;
}

bool Connection::isFlooded() const {
    return searched_ - taken_ > ControlServer::longestRequest;
}

void Connection::answer(Mailbox::Delivery&& delivery) {
    asked_ = false;
    outgoing_ += delivery.line;
    following_ = std::move(delivery);
}

void Connection::refill() {
    outgoing_.clear();
    sent_ = 0;
    if (following_.stream)
        following_.stream->take(outgoing_);
}

void Connection::send() {
    for (;;) {
        if (sent_ == outgoing_.size())
            refill();
        if (gone_ || sent_ == outgoing_.size()) {
            stuckSince_.reset();
            return;
        }
        const auto count =
            ::send(socket_.number(), outgoing_.data() + sent_, outgoing_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            gone_ = errno != EAGAIN;
            if (!stuckSince_)
                stuckSince_ = Clock::now();
            return;
        }
        sent_ += static_cast<std::size_t>(count);
        stuckSince_.reset();
    }
}

bool Connection::isOver() const {
    if (gone_)
        return true;
    if (asked_ || sent_ < outgoing_.size())
        return false;
    if (following_.stream)
        return following_.stream->isExhausted();
    return finishing_ || (inputEnded_ && incoming_.find('\n', searched_) == std::string::npos);
}

} // namespace control
