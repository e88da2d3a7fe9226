#pragma once

#include "cli/record/RecordTap.h"
#include "recording/Header.h"

#include <memory>
#include <string>

namespace cli {

/// Where a mount is to be recorded from its start.
struct RecordPlan {
    std::string file; // absolute; empty: nowhere
    recording::Settings settings;
};

/// Makes the file and records into it; null if nothing is to be recorded. A file that cannot be written any more is
/// told in the log. Throws CommandError if it cannot be made.
std::unique_ptr<RecordTap> recordMount(const RecordPlan& plan, const std::string& mountPoint, ExchangeMeter& exchanges,
                                       TraceFeed& requests);

} // namespace cli
