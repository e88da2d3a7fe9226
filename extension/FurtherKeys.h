#pragma once

#include "extension/HelperSettings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kemvi {

/// What a mount configuration says beyond what each must.
struct FurtherKeys {
    std::vector<std::string> command; // "helperCommand": what the shipped script `program` runs; empty: it is no helper
    HelperSettings settings;          // "helperEnvironment"
    /// "mountOptions": what this tree should be mounted with, each as `-o` takes it. None if it is no array of strings,
    /// which is for a host that takes options to refuse.
    std::optional<std::vector<std::string>> mountOptions = std::vector<std::string>();

    /// `text` is a configuration, a JSON object, whose "helperPath" is known; `file` is what an error names. Throws
    /// SettingsError where a key has another form than it must, DecodingError where the text is no JSON object. Other
    /// keys are ignored, and "helperCommand" too where `program` is not the helper.
    static FurtherKeys read(std::string_view text, const std::string& helperPath, const std::string& file);
};

} // namespace kemvi
