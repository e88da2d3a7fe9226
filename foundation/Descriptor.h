#pragma once

#include <utility>

namespace foundation {

/// Owns one file descriptor of the process, or none: its number is -1 then. Whoever opens the descriptor has it opened
/// close-on-exec (O_CLOEXEC and its kin), since a child that is started meanwhile would inherit it.
///
/// Thread-safety: as an int has it. Closing while another thread uses the number is the mistake that FileHandle
/// prevents; here the owner sees to it.
class Descriptor {
public:
    Descriptor() noexcept = default;

    /// Takes `number` over; a negative one makes an object that owns nothing, so that the result of a call of the
    /// platform can be handed in as it is.
    explicit Descriptor(int number) noexcept : number_(number < 0 ? -1 : number) {}

    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}

    /// Closes what was owned before.
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Leaves errno as it is, so that a failed call can be told of after what it leaves behind was closed.
    ~Descriptor() { reset(); }

    bool isOpen() const noexcept { return number_ >= 0; }

    /// The number, for calls of the platform and for children; -1 where nothing is owned.
    int number() const noexcept { return number_; }

    /// Gives the descriptor out of hand: the caller closes it.
    [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

    /// Closes it now; does nothing if nothing is owned. Leaves errno as it is.
    void reset() noexcept;

    /// The same where it matters whether everything written has arrived: false, with errno set, if the platform reports
    /// an error. It is closed in any case. True if nothing is owned.
    [[nodiscard]] bool close() noexcept;

private:
    int number_ = -1;
};

/// The same file under a number of 3 or higher: a process whose standard descriptors are closed is given one of their
/// numbers, which the launch of a child overwrites. Owns nothing, with errno set, on failure.
Descriptor clearOfStandard(Descriptor descriptor) noexcept;

/// The two ends of a pipe.
struct PipeEnds {
    Descriptor reading;
    Descriptor writing;
};

/// A pipe with both ends close-on-exec. Both own nothing, and errno says why, if the process can have none.
PipeEnds openPipe() noexcept;

} // namespace foundation
