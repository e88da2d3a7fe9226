#pragma once

namespace fusehost {

/// An eventfd: readable once it was signalled, until it is cleared. Any thread may signal.
class EventDescriptor {
public:
    /// Throws std::system_error if the process can have no more descriptors.
    EventDescriptor();
    ~EventDescriptor();
    EventDescriptor(const EventDescriptor&) = delete;
    EventDescriptor& operator=(const EventDescriptor&) = delete;

    int number() const { return number_; }

    /// Async-signal-safe.
    void signal() const noexcept;
    void clear() const noexcept;

private:
    int number_;
};

} // namespace fusehost
