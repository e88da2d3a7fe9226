#include "hosts/fuse/tree/ReadAhead.h"

#include "hosts/fuse/support/BackgroundThread.h"

#include <algorithm>
#include <exception>
#include <new>

namespace fusehost {

ReadAhead::~ReadAhead() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
    }
    changed_.notify_all();
    if (reader_.joinable())
        reader_.join();
}

bool ReadAhead::hasThread() {
    if (reader_.joinable())
        return true;
    try {
        reader_ = startBackgroundThread([this] { work(); });
    } catch (const std::exception&) {
        // No more threads, or memory, for this process: it goes without.
    }
    return reader_.joinable();
}

void ReadAhead::start(const Node& node, std::int64_t offset, std::size_t size) {
    if (maximumAge_ <= Seconds(0) || !node.item || !hasThread())
        return;
    Guard guard(lock_);
    clear(guard);
    try {
        bytes_.resize(std::max(bytes_.size(), size));
    } catch (const std::bad_alloc&) {
        return; // the program's own read will tell
    }
    block_ = {node.id, node.item, offset, size, std::chrono::steady_clock::now()};
    state_ = State::asked;
    changed_.notify_all();
}

// Needs the lock; gives it up while it waits.
void ReadAhead::clear(Guard& guard) {
    changed_.wait(guard, [&] { return state_ != State::asked; });
    state_ = State::empty;
    block_ = {};
}

std::size_t ReadAhead::take(NodeID node, std::int64_t offset, std::span<std::byte> into) {
    Guard guard(lock_);
    if (state_ == State::empty || block_.node != node || block_.offset != offset)
        return 0;
    const auto age = std::chrono::steady_clock::now() - block_.asked;
    changed_.wait(guard, [&] { return state_ != State::asked; });
    const std::size_t count = age < maximumAge_ ? std::min(count_, into.size()) : 0;
    std::copy_n(bytes_.begin(), count, into.begin());
    clear(guard);
    return count;
}

bool ReadAhead::isUnderWay() {
    const std::lock_guard guard(lock_);
    return state_ == State::asked;
}

// A helper may have two names for one path, and then two nodes share what is open.
void ReadAhead::drop(const Node& node) {
    Guard guard(lock_);
    if (state_ == State::empty)
        return;
    if (block_.node == node.id || (node.item && block_.item->isSame(*node.item)))
        clear(guard);
}

void ReadAhead::dropAll() {
    Guard guard(lock_);
    clear(guard);
}

void ReadAhead::work() {
    Guard guard(lock_);
    while (true) {
        changed_.wait(guard, [&] { return ending_ || state_ == State::asked; });
        if (state_ != State::asked)
            return;
        guard.unlock();
        std::size_t count = 0;
        try {
            count = volume_.read(block_.item, block_.offset, std::span(bytes_).first(block_.size));
        } catch (...) {
            // Whatever it is: read again, and told, when the program gets there.
        }
        guard.lock();
        count_ = count;
        state_ = State::read;
        changed_.notify_all();
    }
}

} // namespace fusehost
