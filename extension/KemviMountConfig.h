#pragma once

#include <map>
#include <string>
#include <string_view>

namespace kemvi {

/// The decoded mount configuration: which helper to run and what it is told. Opaque text, passed on as it was read.
struct KemviMountConfig {
    std::string driveId;
    std::string kemviHome;
    std::string repoRoot;
    /// The script that `node` runs; the only value that is not handed on in the environment.
    std::string helperPath;

    /// Decodes the bytes of the file: a JSON object with the four keys above, exactly so spelled, each a string;
    /// further keys are ignored. Throws foundation::DecodingError for anything else.
    static KemviMountConfig decode(std::string_view bytes);

    /// The complete environment of the helper: this process's own at the moment of the call, with KEMVI_DRIVE_ID,
    /// KEMVI_HOME and KEMVI_REPO_ROOT set to the configured values.
    std::map<std::string, std::string> helperEnvironment() const;
};

} // namespace kemvi
