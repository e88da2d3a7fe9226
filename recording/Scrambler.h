#pragma once

#include <string>
#include <string_view>

namespace recording {

/// Replaces names by others that tell nothing: one name always by the same, different names by different ones, and not
/// the same ones in another recording, since the key is random and kept nowhere. What is kept of a name is whether it
/// begins with a dot, an extension that is common, and the class of its length: up to 12, 24, 48, 96 bytes, or more
/// (extension not counted). Immutable; safe on any thread.
class Scrambler {
public:
    /// With a key of its own. Throws std::system_error if the system has no randomness.
    Scrambler();

    /// With this key.
    explicit Scrambler(std::string key) : key_(std::move(key)) {}

    /// One component of a path. Empty, ".", ".." and the names that Kemvi itself gives to hidden files stay.
    std::string name(std::string_view name) const;

    /// Every component; slashes stay.
    std::string path(std::string_view path) const;

private:
    std::string key_;
};

} // namespace recording
