#pragma once

namespace fusehost {

/// What can wait until the kernel asks for nothing. Used by the thread that executes the kernel's requests.
class IdleWork {
public:
    virtual ~IdleWork() = default;

    virtual bool isPending() const = 0;
    /// Does one piece of it, which may be one request to the helper.
    virtual void doNext() noexcept = 0;

    /// Whether something is done meanwhile that nobody waits for yet, and that takes a processor elsewhere.
    virtual bool isUnderWay() = 0;
};

} // namespace fusehost
