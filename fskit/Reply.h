#pragma once

#include "foundation/NSError.h"

#include <functional>
#include <optional>
#include <tuple>
#include <utility>

namespace fskit {

namespace detail {
/// Stops a debug build: a reply handler was called a second time. In a release build the second call is dropped.
void replyCalledTwice();
/// Logs that a reply handler was dropped without having been called.
void replyDropped();

template <typename T>
T droppedArgument() {
    if constexpr (std::is_same_v<T, std::optional<foundation::NSError>>)
        return foundation::NSError::posix(5 /* EIO */);
    else
        return T{};
}
} // namespace detail

/// The reply handler of one operation: move-only, to be called exactly once, from any thread. Arguments follow the
/// platform's blocks: results first, then `std::optional<NSError>` last where the operation can fail. A handler that
/// is destroyed unused answers EIO, so that no caller ever waits for ever.
template <typename... Args>
class Reply {
public:
    using Handler = std::function<void(Args...)>;

    Reply() = default;

    explicit Reply(Handler handler) : handler_(std::move(handler)), armed_(static_cast<bool>(handler_)) {}

    Reply(Reply&& other) noexcept
        : handler_(std::move(other.handler_)), armed_(std::exchange(other.armed_, false)), used_(other.used_) {}

    Reply& operator=(Reply&& other) noexcept {
        if (this != &other) {
            answerIfDropped();
            handler_ = std::move(other.handler_);
            armed_ = std::exchange(other.armed_, false);
            used_ = other.used_;
        }
        return *this;
    }

    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    ~Reply() { answerIfDropped(); }

    void operator()(Args... args) {
        if (!armed_) {
            if (used_)
                detail::replyCalledTwice();
            return;
        }
        armed_ = false;
        used_ = true;
        Handler handler = std::move(handler_);
        handler(std::move(args)...);
    }

private:
    void answerIfDropped() {
        if (!armed_)
            return;
        detail::replyDropped();
        (*this)(detail::droppedArgument<Args>()...);
    }

    Handler handler_;
    bool armed_ = false;
    bool used_ = false;
};

using ErrorReply = Reply<std::optional<foundation::NSError>>;

} // namespace fskit
