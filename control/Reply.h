#pragma once

#include "control/LineStream.h"
#include "control/Members.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace control {

class Mailbox;

/// The one answer to a request; move-only, to be used once. It may be kept, handed to another thread and answered there
/// whenever the answer is known, also after the peer or the server has gone. One that is dropped unanswered refuses the
/// request. The peer's next request is read when this one is answered.
class Reply {
public:
    static constexpr std::size_t usualRoom = std::size_t{1} << 20; // bytes

    Reply(std::shared_ptr<Mailbox> mailbox, std::uint64_t peer);
    ~Reply();
    Reply(Reply&&) noexcept = default;
    Reply& operator=(Reply&&) = delete;

    /// Answers {"ok":true, ...members}.
    void succeed(const Members& members = {});

    /// Answers {"ok":false,"error":{"message":...,"code":...}}.
    void refuse(std::string_view code, std::string_view message);

    /// Answers as `succeed` does, and from then on sends the lines that are pushed to the stream, until the peer goes
    /// or the stream is ended; the peer asks nothing more on this connection. `onGone` is called once, the moment the
    /// peer is gone (also where the server or the stream ends first), so that what makes the lines can stop; it must
    /// not wait. It runs on the channel's thread, or, where the server has ended already, within this call.
    std::shared_ptr<LineStream> stream(const Members& members = {}, std::function<void()> onGone = {},
                                       std::size_t room = usualRoom);

    /// True once it was answered, or moved from.
    bool isAnswered() const;

    /// False once nobody waits for the answer any more.
    bool isWanted() const;

private:
    std::shared_ptr<Mailbox> mailbox_; // null once used
    std::uint64_t peer_;
};

} // namespace control
