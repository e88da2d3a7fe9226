#include "control/LineStream.h"

#include "control/Mailbox.h"

#include <cassert>
#include <new>
#include <utility>

namespace control {

namespace {

void addLossTo(std::string& lines, std::uint64_t lost) {
    lines += "{\"lost\":" + std::to_string(lost) + "}\n";
}

} // namespace

LineStream::LineStream(std::shared_ptr<Mailbox> mailbox, std::size_t room)
    : mailbox_(std::move(mailbox)), room_(room) {}

bool LineStream::push(std::string_view line) noexcept {
    assert(line.find('\n') == std::string_view::npos);
    if (!isWanted())
        return false;
    bool kept = false;
    {
        const std::lock_guard lock(mutex_);
        try {
            if (waiting_.size() + line.size() < room_) {
                if (lostHere_ > 0)
                    addLossTo(waiting_, lostHere_);
                lostHere_ = 0;
                waiting_.append(line).append(1, '\n');
                kept = true;
            }
        } catch (const std::bad_alloc&) {
            waiting_.resize(waiting_.rfind('\n') + 1); // whole lines only
        }
        if (!kept)
            ++lostHere_;
    }
    if (!kept)
        allLost_.fetch_add(1, std::memory_order_relaxed);
    mailbox_->wake();
    return kept;
}

void LineStream::end() noexcept {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    wanted_ = false;
    mailbox_->wake();
}

void LineStream::take(std::string& into) {
    assert(into.empty());
    std::uint64_t lost = 0;
    {
        const std::lock_guard lock(mutex_);
        into.swap(waiting_);
        lost = std::exchange(lostHere_, 0);
    }
    if (lost > 0)
        addLossTo(into, lost);
}

void LineStream::cutOff() noexcept {
    wanted_ = false;
    std::string dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(waiting_);
    lostHere_ = 0;
    ended_ = true;
}

bool LineStream::isExhausted() const {
    const std::lock_guard lock(mutex_);
    return ended_ && waiting_.empty() && lostHere_ == 0;
}

} // namespace control
