#pragma once

#import <Foundation/Foundation.h>

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "fskit/Reply.h"

#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>

NS_ASSUME_NONNULL_BEGIN

namespace macoshost {

using MaybeError = std::optional<foundation::NSError>;

/// The answer to one call of the platform: given exactly once, by the core's reply handler or, if the core throws
/// instead, by `fail`. Whoever comes first answers, all others are ignored. Shared by the call and the handler.
template <typename Reply>
class Answer;

template <typename... Args>
class Answer<fskit::Reply<Args...>> : public std::enable_shared_from_this<Answer<fskit::Reply<Args...>>> {
public:
    using Handler = typename fskit::Reply<Args...>::Handler;

    Answer(Handler block, id _Nullable kept) : block_(std::move(block)), kept_(kept) {}

    /// The core's reply handler. To be called on the thread of the call.
    fskit::Reply<Args...> reply() {
        return fskit::Reply<Args...>(
            [self = this->shared_from_this()](Args... args) { self->giveUnlessUnwinding(std::move(args)...); });
    }

    /// Answers `error` with empty results.
    void fail(const foundation::NSError& error) { give(failedArgument<Args>(error)...); }

    /// The call returned: a handler that was dropped on the way, with the exception caught inside the core, is
    /// answered after all.
    void returned() {
        if (droppedWhileUnwinding_)
            fail(foundation::NSError::posix(foundation::posixErrno::EIO_));
    }

private:
    // While an exception leaves the core it destroys the handler, which then answers EIO for want of anything better.
    // The call knows better: it catches that exception.
    void giveUnlessUnwinding(Args... args) {
        if (std::this_thread::get_id() == caller_ && std::uncaught_exceptions() > exceptionsBefore_)
            droppedWhileUnwinding_ = true;
        else
            give(std::move(args)...);
    }

    void give(Args... args) {
        if (given_.exchange(true))
            return;
        @autoreleasepool {
            block_(std::move(args)...);
            // Not only with the last reference to this, which the core may keep.
            block_ = nullptr;
            kept_ = nil;
        }
    }

    template <typename T>
    static T failedArgument(const foundation::NSError& error) {
        if constexpr (std::is_same_v<T, MaybeError>)
            return error;
        else
            return T{};
    }

    Handler block_;
    id _Nullable kept_;
    const std::thread::id caller_ = std::this_thread::get_id();
    const int exceptionsBefore_ = std::uncaught_exceptions();
    bool droppedWhileUnwinding_ = false; // read and written on the calling thread only
    std::atomic<bool> given_{false};
};

/// Carries one call of the platform to the core. `call` makes the core's call with the reply handler it is given;
/// `block` turns the core's answer into the platform's and is run exactly once, also when the core throws. `kept`,
/// whose memory the core was given, is kept alive until then.
template <typename Reply, typename Call>
void callCore(typename Reply::Handler block, Call&& call, id _Nullable kept = nil) {
    @autoreleasepool {
        const auto answer = std::make_shared<Answer<Reply>>(std::move(block), kept);
        try {
            std::forward<Call>(call)(answer->reply());
        } catch (...) {
            answer->fail(foundation::currentError());
            return;
        }
        answer->returned();
    }
}

} // namespace macoshost

NS_ASSUME_NONNULL_END
