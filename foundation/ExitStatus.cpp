#include "foundation/ExitStatus.h"

#include <cstring>
#include <sys/wait.h>

namespace foundation {

std::optional<int> ExitStatus::code() const {
    return WIFEXITED(waitStatus_) ? std::optional(WEXITSTATUS(waitStatus_)) : std::nullopt;
}

std::optional<int> ExitStatus::signal() const {
    return WIFSIGNALED(waitStatus_) ? std::optional(WTERMSIG(waitStatus_)) : std::nullopt;
}

std::string ExitStatus::description() const {
    if (const auto number = signal())
        return "was killed by signal " + std::to_string(*number) + " (" + ::strsignal(*number) + ")";
    return "exited with status " + std::to_string(code().value_or(0));
}

} // namespace foundation
