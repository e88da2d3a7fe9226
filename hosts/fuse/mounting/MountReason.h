#pragma once

#include "foundation/Descriptor.h"

#include <string>
#include <string_view>

namespace fusehost {

/// What fusermount3 or libfuse said about a mount, in words for the user: what is wrong and what to do. `line` is one
/// line, with or without the program's name at its start; what is not known comes back without that name.
std::string mountReason(std::string_view line);

/// Gathers what is written to standard error, by this process and by programs that it runs, for as long as it lives.
/// Other threads' lines are gathered with the rest, so keep it short. Gathers nothing where there is no standard error.
class GatheredErrors {
public:
    GatheredErrors();
    ~GatheredErrors();
    GatheredErrors(const GatheredErrors&) = delete;
    GatheredErrors& operator=(const GatheredErrors&) = delete;

    /// Ends the gathering. Returns the reasons told by fusermount3, separated by "; "; other lines are written to
    /// standard error as they came.
    std::string finish();

private:
    foundation::Descriptor file_;
    foundation::Descriptor saved_; // the standard error of before; owns nothing when the gathering is over
};

} // namespace fusehost
