#pragma once

#include "ServedTree.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace local {

/// Keeps the configuration that a mount was made from out of reach of those who use the mount: whoever can change it
/// chooses the program that the next mount runs. All functions throw kemvi::PosixError with EPERM. Not thread-safe.
class ConfigurationGuard {
public:
    /// `root` is the real path of the served folder, `source` the folder of the configuration; the served folder where
    /// it is empty.
    ConfigurationGuard(std::string root, const std::string& source);

    /// To be called before a name is made, removed, replaced or given to something else; `path` is for the message.
    void checkName(const Place& place, const std::string& path);

    /// To be called before a file is changed, whatever name it was reached by.
    void checkFile(const struct stat& file, const std::string& path);

    /// To be called before a folder's mode is set: others who may write there replace the configuration past the mount.
    void checkFolderMode(const struct stat& folder, mode_t after, const std::string& path);

private:
    /// One name on the way to the configuration: that of the file, of a folder above it or of a link that leads to it.
    struct Entry {
        std::string folder; // real
        std::string name;
        std::optional<struct stat> facts; // of what has the name, links not followed
    };

    struct Way {
        std::vector<Entry> entries;      // those that lie in the served folder
        std::optional<struct stat> file; // the configuration itself, if it is there
        bool isExact = true;             // other spellings of a name are known to be other files
        std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
    };

    const Way& current();
    Way walk() const;
    bool isServed(const std::string& real) const;

    const std::string root_;
    std::string source_;
    Way way_;
};

} // namespace local
