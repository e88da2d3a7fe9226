#pragma once

#include "fskit/Reply.h"

#include <condition_variable>
#include <mutex>
#include <tuple>

namespace fusehost {

/// Turns one operation with a reply handler into a call: `start` is given the handler, and the arguments that the
/// handler receives are returned, whichever thread calls it and whenever.
template <typename... Args, typename Start>
std::tuple<Args...> await(Start&& start) {
    std::mutex lock;
    std::condition_variable answered;
    std::optional<std::tuple<Args...>> answer;
    start(fskit::Reply<Args...>([&](Args... args) {
        std::lock_guard guard(lock);
        answer.emplace(std::move(args)...);
        // Under the lock: the waiting thread cannot return, and so not destroy these, before this is done.
        answered.notify_one();
    }));
    std::unique_lock guard(lock);
    answered.wait(guard, [&] { return answer.has_value(); });
    return std::move(*answer);
}

} // namespace fusehost
