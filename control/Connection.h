#pragma once

#include "control/LineStream.h"
#include "control/Mailbox.h"
#include "control/Request.h"
#include "foundation/Descriptor.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace control {

/// One peer of a channel, as the channel's thread sees it: lines in, one request at a time; lines out, as fast as the
/// peer takes them. Nothing here waits. Not thread-safe.
class Connection {
public:
    using Clock = std::chrono::steady_clock;

    Connection(foundation::Descriptor socket, Peer peer, Mailbox::PeerNumber number)
        : socket_(std::move(socket)), peer_(peer), number_(number) {}

    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const Peer& peer() const { return peer_; }

    Mailbox::PeerNumber number() const { return number_; }

    int descriptor() const { return socket_.number(); }

    /// What poll(2) is to look for.
    short events() const;

    /// Takes in what has arrived.
    void receive();

    /// The next request line, if it is time for one; it counts as asked until `answer`. Valid until `receive`.
    std::optional<std::string_view> nextRequest();

    /// True if `nextRequest` would give one.
    bool hasRequest();

    /// A line that is longer than any request may be has begun.
    bool isFlooded() const;

    /// Puts a line out that answers no request: the first one, and the last.
    void put(std::string_view line) { outgoing_ += line; }

    /// The answer to the request that was taken last, and what follows it.
    void answer(Mailbox::Delivery&& delivery);

    bool isAsked() const { return asked_; }

    /// Sends what is to be sent and can be.
    void send();

    /// No more is read; it ends when all is sent.
    void finish() { finishing_ = true; }

    bool isFinishing() const { return finishing_; }

    /// The peer has gone, or there is nothing more to do for it.
    bool isOver() const;

    void noteGone() { gone_ = true; }

    /// Since when the peer has not taken what there is for it; nothing while all is sent.
    std::optional<Clock::time_point> stuckSince() const { return stuckSince_; }

private:
    bool takesRequests() const;
    void refill();

    foundation::Descriptor socket_;
    const Peer peer_;
    const Mailbox::PeerNumber number_;
    std::string incoming_;
    std::size_t searched_ = 0; // of incoming_: no line break before it
    std::size_t taken_ = 0;    // of incoming_: handed out
    std::string outgoing_;
    std::size_t sent_ = 0; // of outgoing_
    std::optional<Clock::time_point> stuckSince_;
    Mailbox::Delivery following_; // its stream, once there is one
    bool asked_ = false;
    bool inputEnded_ = false;
    bool finishing_ = false;
    bool gone_ = false;
};

} // namespace control
