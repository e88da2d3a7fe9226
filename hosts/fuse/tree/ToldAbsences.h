#pragma once

#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/Clock.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <string>

namespace fusehost {

/// The names of which the kernel was told that it may remember their absence: it names none of them to anybody, so that
/// only who remembers them too can have it forget. Throws nothing but std::bad_alloc.
class ToldAbsences {
public:
    /// `trust`: for how long the kernel remembers; 0 if it is told of none. `most` bounds the memory for them.
    ToldAbsences(Seconds trust, std::size_t most, Clock clock);

    /// False if the kernel is not to be told: it remembers none, or so many that one more could not be kept here.
    bool add(const Node& directory, const std::string& name);

    /// Calls `use` with each name whose directory `isMeant`.
    void forEach(const std::function<bool(NodeID directory)>& isMeant,
                 const std::function<void(NodeID directory, const std::string& name)>& use);

private:
    struct Told {
        NodeID directory = 0;
        std::string name;
        std::chrono::steady_clock::time_point at;
    };

    void dropOld();

    const Clock clock_;
    const Seconds trust_;
    const std::size_t most_;
    std::deque<Told> told_; // the latest last
};

} // namespace fusehost
