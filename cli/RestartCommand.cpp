#include "cli/RestartCommand.h"

#include "cli/MountChannel.h"

#include <chrono>
#include <memory>
#include <string>

namespace cli {

namespace {

struct Request {
    std::string mountPoint;
    bool keepCaches = false;
};

/// What is under way may be finished, what is written be made safe, and the next helper start as slowly as it likes.
constexpr control::ControlClient::Limit forAsLongAsItTakes = std::chrono::hours(24 * 365);

ExitCode run(const Request& request) {
    auto channel = connectToMount(request.mountPoint);
    try {
        channel.ask("restart", control::Members().add("keepCaches", request.keepCaches), forAsLongAsItTakes);
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addRestartCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("restart", "Start a mount's helper anew while the mount stays");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_flag("--keep-caches", request->keepCaches,
                      "The next helper serves the same: let the kernel keep what it has cached");
    command->footer("Programs keep what they have open. A helper that hangs is killed after five seconds.");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
