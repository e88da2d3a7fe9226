#pragma once

#include <cstdint>
#include <string>

namespace fusehost {

/// The names that this mount gives to files of its own in the served tree: removed files that live on, copies of heads.
/// They say what they are, for whoever finds one after a crash, and differ from mount to mount.
class HiddenNames {
public:
    HiddenNames();

    /// One that was never given before.
    std::string next();

    /// Whether the name begins as ours do. Anybody may make such a name: it alone hides nothing.
    bool isLikeOurs(const std::string& name) const { return name.starts_with(prefix_); }

private:
    const std::string prefix_;
    std::uint64_t next_ = 1;
};

} // namespace fusehost
