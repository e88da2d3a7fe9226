#include "control/Reply.h"

#include "control/Lines.h"
#include "control/Mailbox.h"

#include <cassert>
#include <new>
#include <utility>

namespace control {

Reply::Reply(std::shared_ptr<Mailbox> mailbox, std::uint64_t peer) : mailbox_(std::move(mailbox)), peer_(peer) {}

Reply::~Reply() {
    if (!mailbox_)
        return;
    try {
        refuse("unanswered", "the request was given up");
    } catch (const std::bad_alloc&) {
        // The peer is told by the end of the connection.
    }
}

void Reply::succeed(const Members& members) {
    assert(mailbox_);
    std::exchange(mailbox_, nullptr)->post({peer_, successLine(members), nullptr, {}});
}

void Reply::refuse(std::string_view code, std::string_view message) {
    assert(mailbox_);
    std::exchange(mailbox_, nullptr)->post({peer_, refusalLine(code, message), nullptr, {}});
}

std::shared_ptr<LineStream> Reply::stream(const Members& members, std::function<void()> onGone, std::size_t room) {
    assert(mailbox_);
    auto stream = std::make_shared<LineStream>(mailbox_, room);
    std::exchange(mailbox_, nullptr)->post({peer_, successLine(members), stream, std::move(onGone)});
    return stream;
}

bool Reply::isAnswered() const {
    return !mailbox_;
}

bool Reply::isWanted() const {
    return mailbox_ && mailbox_->isThere(peer_);
}

} // namespace control
