#include "cli/record/MountRecording.h"

#include "cli/CommandError.h"
#include "foundation/Log.h"
#include "recording/Output.h"
#include "recording/RecordingError.h"

#include <utility>

namespace cli {

namespace {

void logEnd(const std::string& file, const std::string& reason) {
    foundation::Logger(foundation::bundleIdentifier, "record")
        .error({"the recording ends here, the mount goes on: ", foundation::logPublic(file), ": ",
                foundation::logPublic(reason)});
}

} // namespace

std::unique_ptr<RecordTap> recordMount(const RecordPlan& plan, const std::string& mountPoint, ExchangeMeter& exchanges,
                                       TraceFeed& requests) {
    if (plan.file.empty())
        return nullptr;
    try {
        auto writer = std::make_unique<recording::Writer>(
            recording::openOutput(plan.file), plan.settings, KEMVI_VERSION, mountPoint,
            [file = plan.file](const std::string& reason) { logEnd(file, reason); });
        return std::make_unique<RecordTap>(exchanges, requests, std::move(writer));
    } catch (const recording::RecordingError& error) {
        throw CommandError(ExitCode::badRecording, plan.file, error.what());
    }
}

} // namespace cli
