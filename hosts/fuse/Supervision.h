#pragma once

#include "foundation/NSError.h"

#include <chrono>
#include <optional>

namespace fusehost {

/// What an embedding program knows and decides of the life of the volumes that a mount shows one after the other. All
/// but the first is asked by the thread that serves.
class Supervision {
public:
    virtual ~Supervision() = default;

    /// Whether a failure of that origin shows that the volume answers no more, or that nothing that it answers is to be
    /// believed. Any thread; returns soon.
    virtual bool isEnd(const foundation::ErrorOrigin& origin) noexcept = 0;

    /// Whether the volume answers no more, by what is known without asking it.
    virtual bool hasEnded() const noexcept = 0;

    /// The volume is about to be told to end, which is then waited for without limit: somebody else must see to it that
    /// it comes to an end.
    virtual void leaving() noexcept = 0;

    /// Ends what is left of the volume, and waits for that. True if it has gone in good order: it was told to end, and
    /// did so by itself.
    virtual bool settle() noexcept = 0;

    /// The volume has ended by itself, or another one could not be loaded: how long to wait before the next attempt.
    /// Nothing: there is to be none.
    virtual std::optional<std::chrono::milliseconds> pause() noexcept = 0;

    virtual void loadFailed(const foundation::NSError& error) noexcept = 0;

    /// There is another volume.
    virtual void renewed() noexcept = 0;

    /// There will be none. All operations fail from here on, and somebody is to end the mount.
    virtual void gaveUp() noexcept = 0;

    /// The mount has ended, and the volume before it by itself: what programs had changed and was not safe by then may
    /// be lost. `settle` was called for the last one that ended.
    virtual void failedAtLast() noexcept = 0;
};

} // namespace fusehost
