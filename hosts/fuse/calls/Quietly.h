#pragma once

#include <utility>

namespace fusehost {

/// Logs the exception being handled; called in a catch block. `task` says what failed, as in "forgetting a node".
void logFailure(const char* task) noexcept;

/// Runs what nobody can be told the failure of: it is logged, and goes no further.
template <typename Action>
void quietly(const char* task, Action&& action) noexcept {
    try {
        std::forward<Action>(action)();
    } catch (...) {
        logFailure(task);
    }
}

} // namespace fusehost
