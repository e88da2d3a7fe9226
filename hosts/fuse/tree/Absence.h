#pragma once

#include "hosts/fuse/tree/Clock.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <optional>
#include <string>

namespace fusehost {

/// A name that a lookup has found missing.
struct AbsentName {
    NodeID directory = 0;
    std::string name;
    std::chrono::steady_clock::time_point seen;
};

/// Remembers the name that the lookup just before has found missing: spares the create that follows it the same
/// question. Every change of names takes it away. Throws nothing.
class Absence {
public:
    /// `isTrusted`: whether a create may rely on the lookup before it. Not with timeouts of 0, and not where the kernel
    /// itself remembers absent names: it then creates without a lookup, and the last one may be long past.
    Absence(bool isTrusted, Clock clock);

    void note(const Node& directory, const std::string& name);
    /// What was noted last, which is then forgotten here.
    std::optional<AbsentName> take();
    /// Whether `absent`, taken before, tells now that the directory has no such name.
    bool tells(const AbsentName& absent, const Node& directory, const std::string& name) const;

private:
    const Clock clock_;
    const bool isTrusted_;
    std::optional<AbsentName> last_;
};

} // namespace fusehost
