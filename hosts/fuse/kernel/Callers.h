#pragma once

#include <cstdint>
#include <string_view>

namespace fusehost {

/// What becomes of a thread that waits for the file system.
enum class CallerFate {
    lives,  // it goes on: no signal is pending, or only such as it handles, blocks or ignores
    dies,   // a signal is about to end it, it is on its way out, or gone
    unseen, // it is in another process namespace, or /proc hides it
};

/// Tells from the text of a thread's /proc/ID/status whether a signal is about to end it: one that cannot be handled,
/// or one whose default action ends a process and that the thread neither handles nor blocks nor ignores.
bool isAboutToDie(std::string_view status);

/// Knows the threads that the kernel names as callers. Safe on any thread.
class Callers {
public:
    virtual ~Callers() = default;

    /// `thread` is a thread's number as a request tells it; 0 stands for one that cannot be named.
    virtual CallerFate fateOf(std::uint32_t thread) const noexcept = 0;
};

/// The threads of this system, as /proc shows them to this process.
class SystemCallers final : public Callers {
public:
    SystemCallers();
    CallerFate fateOf(std::uint32_t thread) const noexcept override;

private:
    bool procIsOurs_; // /proc numbers threads as requests do
};

} // namespace fusehost
