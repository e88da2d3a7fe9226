#pragma once

#include "cli/HelperSettings.h"
#include "extension/KemviMountConfig.h"

#include <string>
#include <vector>

namespace cli {

/// A source directory whose configuration has been read.
struct MountSource {
    std::string path; // real path
    kemvi::KemviMountConfig config;
    std::vector<std::string> command; // what the shipped script `program` runs; empty: it is not the helper
    HelperSettings settings;          // for the helper's environment
    std::vector<std::string> options; // each a list separated by commas, as `-o` takes it

    std::string configurationPath() const;
    /// What serves the tree, for messages: the script, or the command that it runs.
    std::string helperName() const;
};

/// The path of the configuration file of a source directory.
std::string configurationPath(const std::string& source);

/// Reads SOURCE and its mount-config.json. Throws CommandError that names the file, the key and what was expected.
MountSource readMountSource(const std::string& source);

/// Throws CommandError unless `node` is in PATH and the helper script is there, with the program that it runs, if any.
void checkHelperAvailable(const MountSource& source);

/// Puts the source directory into this process's own environment, as KEMVI_SOURCE. The helper inherits it and so knows
/// which file the mount was made from. It inherits the settings in the same way. As KEMVI_BECOME it also gets what the
/// shipped helper `program` needs to become the program that it starts. No control channel is named yet: that of
/// another mount, from whose helper this command may have been called, is not meant. To be called before there are
/// other threads.
void tellSourceToHelpers(const MountSource& source);

} // namespace cli
