#include "cli/InvalidateCommand.h"

#include "cli/CommandError.h"
#include "cli/MountChannel.h"
#include "cli/control/ServedPath.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cli {

namespace {

using namespace std::chrono_literals;

struct Request {
    std::string mountPoint;
    std::vector<std::string> paths;
    bool all = false;
};

/// After so long without an answer the user is told what it waits for.
constexpr auto quietWait = 3s;
/// The answer comes when the helper has answered what it was asked before, whenever that is.
constexpr control::ControlClient::Limit forAsLongAsItTakes = std::chrono::hours(24 * 365);
/// The bytes of paths in one request, which is far below what a channel takes, however they are escaped.
constexpr std::size_t mostPerRequest = std::size_t{100} * 1024;

/// Says once, after a while, that the answer is still to come.
class Patience {
public:
    explicit Patience(std::string mountPoint)
        : thread_([this, mountPoint = std::move(mountPoint)] {
              std::unique_lock guard(lock_);
              if (!changed_.wait_for(guard, quietWait, [&] { return done_; }))
                  printMessage(mountPoint + ": waits until the helper has answered what programs asked before; see " +
                               "kemvi status " + mountPoint);
          }) {}

    ~Patience() {
        {
            const std::lock_guard guard(lock_);
            done_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

private:
    std::mutex lock_; // guards what follows
    std::condition_variable changed_;
    bool done_ = false;
    std::thread thread_;
};

void checkRequest(const Request& request) {
    if (request.all && !request.paths.empty())
        throw CommandError(ExitCode::usage, "--all", "means everything; name no paths beside it");
    if (!request.all && request.paths.empty()) {
        throw CommandError(ExitCode::usage, request.mountPoint,
                           "which paths? Name some, from the top of the mount, or use --all");
    }
    for (const std::string& path : request.paths)
        if (const auto problem = problemOfServedPath(path))
            throw CommandError(ExitCode::usage, path, *problem);
}

/// The paths in as many requests as it takes.
std::vector<std::vector<std::string>> requestsFor(const std::vector<std::string>& paths) {
    std::vector<std::vector<std::string>> requests(1);
    std::size_t bytes = 0;
    for (const std::string& path : paths) {
        if (bytes + path.size() > mostPerRequest && bytes > 0) {
            requests.emplace_back();
            bytes = 0;
        }
        requests.back().push_back(path);
        bytes += path.size() + 1;
    }
    return requests;
}

ExitCode run(const Request& request) {
    checkRequest(request);
    control::ControlClient channel = connectToMount(request.mountPoint);
    const Patience patience(request.mountPoint);
    try {
        if (request.all)
            channel.ask("invalidate", control::Members().add("all", true), forAsLongAsItTakes);
        else
            for (const auto& paths : requestsFor(request.paths))
                channel.ask("invalidate", control::Members().add("paths", paths), forAsLongAsItTakes);
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addInvalidateCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("invalidate", "Have what was changed behind a mount seen at once");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_option("PATH", request->paths,
                        "What was made, removed, replaced or written, from the top of the mount; a directory stands "
                        "for everything beneath it");
    command->add_flag("--all", request->all, "Everything");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
