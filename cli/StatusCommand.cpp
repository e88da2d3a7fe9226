#include "cli/StatusCommand.h"

#include "cli/MountChannel.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "control/JSONText.h"

#include <memory>
#include <string>

namespace cli {

namespace {

struct Request {
    std::string mountPoint;
    bool json = false;
};

ExitCode run(const Request& request) {
    auto channel = connectToMount(request.mountPoint);
    try {
        const auto status = channel.ask("status");
        print(request.json ? control::jsonText(withoutOk(status)) + "\n" : statusText(status));
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addStatusCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("status", "Tell what a mount is and what it is at");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_flag("--json", request->json, "As one JSON object");
    command->footer("Answers also while the helper hangs. Only the mount's owner and root may ask.");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
