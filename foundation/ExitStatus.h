#pragma once

#include <optional>
#include <string>

namespace foundation {

/// How a process ended.
class ExitStatus {
public:
    /// From what waitpid(2) stored about a process that has ended.
    explicit ExitStatus(int waitStatus) : waitStatus_(waitStatus) {}

    /// What it exited with, 0 to 255; nothing if a signal ended it.
    std::optional<int> code() const;

    /// The signal that ended it; nothing if it exited.
    std::optional<int> signal() const;

    /// As a clause: "exited with status 1" or "was killed by signal 9 (Killed)".
    std::string description() const;

    friend bool operator==(const ExitStatus&, const ExitStatus&) = default;

private:
    int waitStatus_;
};

} // namespace foundation
