#pragma once

#include "foundation/Error.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kemvi {

/// Variables for the environment of a helper; of a name that comes twice the last counts.
using HelperSettings = std::vector<std::pair<std::string, std::string>>;

/// Something that is set for a helper and cannot be.
class SettingsError final : public foundation::Error {
public:
    /// `subject` is the file, key or option; `problem` says what is wrong with it and what was expected.
    SettingsError(std::string subject, std::string problem)
        : subject_(std::move(subject)), problem_(std::move(problem)) {}

    const std::string& subject() const { return subject_; }

    const std::string& problem() const { return problem_; }

    /// EINVAL of the POSIX domain, with the description.
    foundation::NSError nsError() const override;

    std::string description() const override { return subject_ + ": " + problem_; }

private:
    std::string subject_;
    std::string problem_;
};

/// Reads NAME=VALUE; the value may hold anything but NUL. `where` is what an error names: the option, or file and line.
/// Throws SettingsError if the name is none, or one of those that the mount itself sets: all that
/// begin with KEMVI_, but for those of the shipped helpers and the kits.
std::pair<std::string, std::string> helperSetting(std::string_view text, const std::string& where);

} // namespace kemvi
