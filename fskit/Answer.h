#pragma once

#include "fskit/Reply.h"

#include "foundation/Error.h"

#include <optional>
#include <utility>

namespace fskit {

/// Runs `work` and returns what it threw as an error value, or nothing when it returned. This is the one place where
/// exceptions of the core turn into the errors that a reply handler takes.
template <typename Work>
std::optional<foundation::NSError> caughtError(Work&& work) {
    try {
        std::forward<Work>(work)();
        return std::nullopt;
    } catch (const foundation::Error& error) {
        return foundation::errorValue(error); // what the core throws on purpose is not thrown a second time
    } catch (...) {
        return foundation::currentError();
    }
}

/// Runs `work` and replies no error or the one it threw.
template <typename Work>
void answer(ErrorReply& reply, Work&& work) {
    reply(caughtError(std::forward<Work>(work)));
}

/// Runs `work` and replies the value it returned and no error, or `onError` and the error it threw.
template <typename Value, typename Work>
void answer(Reply<Value, std::optional<foundation::NSError>>& reply, Work&& work, Value onError = Value{}) {
    Value value = std::move(onError);
    std::optional<foundation::NSError> error = caughtError([&] { value = std::forward<Work>(work)(); });
    reply(std::move(value), std::move(error));
}

/// Runs `work`, which returns a pair, and replies its two values and no error, or two empty values and the error.
template <typename First, typename Second, typename Work>
void answer(Reply<First, Second, std::optional<foundation::NSError>>& reply, Work&& work) {
    std::pair<First, Second> values;
    std::optional<foundation::NSError> error = caughtError([&] { values = std::forward<Work>(work)(); });
    reply(std::move(values.first), std::move(values.second), std::move(error));
}

} // namespace fskit
