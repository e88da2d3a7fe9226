#include "Fuzz.h"

#include "JSONWriter.h"
#include "extension/KemviMountConfig.h"
#include "foundation/DecodingError.h"

#include <string>

namespace fuzz {

void mountConfig(Input input) {
    kemvi::KemviMountConfig config;
    try {
        config = kemvi::KemviMountConfig::decode(textOf(input));
    } catch (const foundation::DecodingError& error) {
        require(!error.description().empty(), "an error has a text");
        return;
    }
    const std::string text = R"({"driveId":)" + jsonText(config.driveId) + R"(,"kemviHome":)" +
                             jsonText(config.kemviHome) + R"(,"repoRoot":)" + jsonText(config.repoRoot) +
                             R"(,"helperPath":)" + jsonText(config.helperPath) + "}";
    const auto again = kemvi::KemviMountConfig::decode(text);
    require(again.driveId == config.driveId && again.kemviHome == config.kemviHome &&
                again.repoRoot == config.repoRoot && again.helperPath == config.helperPath,
            "a configuration that was read is read again from its values");
    const auto environment = config.helperEnvironment();
    require(environment.at("KEMVI_DRIVE_ID") == config.driveId && environment.at("KEMVI_HOME") == config.kemviHome &&
                environment.at("KEMVI_REPO_ROOT") == config.repoRoot,
            "the helper is told what was configured");
}

} // namespace fuzz
