#pragma once

#include "control/LineStream.h"
#include "foundation/Descriptor.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace control {

/// How other threads reach the channel's thread: what they answer, and that there is something in a stream. It outlives
/// the server for as long as somebody holds a reply. Thread-safe.
class Mailbox {
public:
    using PeerNumber = std::uint64_t;

    /// What a peer is to be sent.
    struct Delivery {
        PeerNumber peer = 0;
        std::string line;                   // with its line break
        std::shared_ptr<LineStream> stream; // what follows the line, if anything
        std::function<void()> onGone;       // of the stream; may be empty
    };

    /// Throws std::system_error if the process can have no more descriptors.
    Mailbox();

    /// Hands a delivery to the channel's thread. Where that has ended the stream is cut off at once.
    void post(Delivery delivery);

    /// Has the channel's thread look after its streams. Costs next to nothing while it is awake already.
    void wake() noexcept;

    bool isThere(PeerNumber peer) const;

    // For the channel.

    /// Readable when there is something to do.
    int descriptor() const { return wakes_.number(); }

    void clear() noexcept;
    std::vector<Delivery> take();
    void came(PeerNumber peer);
    void went(PeerNumber peer);
    /// Nobody takes anything any more.
    void close();

    /// Tells the maker of a delivery's stream, if it has one, that its lines have nowhere to go.
    static void cutOff(Delivery& delivery) noexcept;

private:
    foundation::Descriptor wakes_; // an eventfd
    std::atomic<bool> woken_{false};
    mutable std::mutex mutex_; // guards what follows
    std::vector<Delivery> deliveries_;
    std::set<PeerNumber> peers_;
    bool closed_ = false;
};

} // namespace control
