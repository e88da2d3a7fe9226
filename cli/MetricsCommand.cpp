#include "cli/MetricsCommand.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/MountTarget.h"
#include "cli/metrics/PageServer.h"
#include "cli/stats/PrometheusText.h"
#include "control/ManyChannels.h"
#include "foundation/Error.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cli {

namespace {

using namespace std::chrono_literals;

/// All mounts are asked at once, so this is also what a whole page takes at most.
constexpr auto limit = 1000ms;

/// Processes whose mounts have paths of their own. Where two name the same, as one was detached while it was in use and
/// another took its place, their series would be the same and a server would take neither: shown is what is mounted
/// there now.
std::vector<ServingProcess> shownProcesses() {
    const auto table = fusehost::readMountTable();
    std::map<std::string, ServingProcess> byPath;
    for (auto& serving : servingProcesses()) {
        if (serving.controlPath.empty())
            continue;
        const bool isThere = isBehind(serving, {serving.mountPoint, fusehost::findMount(table, serving.mountPoint)});
        std::string path = serving.mountPoint;
        if (isThere)
            byPath.insert_or_assign(std::move(path), std::move(serving));
        else
            byPath.try_emplace(std::move(path), std::move(serving));
    }
    std::vector<ServingProcess> shown;
    shown.reserve(byPath.size());
    for (auto& [path, serving] : byPath)
        shown.push_back(std::move(serving));
    return shown;
}

std::vector<ScrapedMount> scrapedMounts() {
    std::vector<ScrapedMount> mounts;
    std::vector<control::ChannelAddress> channels;
    for (const auto& serving : shownProcesses()) {
        mounts.push_back({serving.mountPoint, std::nullopt});
        channels.push_back({serving.controlPath, serving.process.pid()});
    }
    const auto answers = control::askAll(channels, "stats", limit);
    for (std::size_t i = 0; i < mounts.size(); ++i)
        if (answers[i].members)
            mounts[i].figures = MountFigures::of(*answers[i].members);
    return mounts;
}

[[noreturn]] void serve(const std::string& address) {
    PageServer server(address, "/metrics", "text/plain; version=0.0.4; charset=utf-8");
    printMessage("serving " + server.url());
    while (true)
        server.answerNext([] { return prometheusText(scrapedMounts()); });
}

} // namespace

void addMetricsCommand(CLI::App& app, ExitCode& /*result*/) {
    auto address = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("metrics", "Serve the figures of all mounts to a Prometheus server");
    command->add_option("--listen", *address, "Address and port: 127.0.0.1:9469")->required();
    command->footer("The mounts of this user, or of all users where root asks; under /metrics. Ends with Ctrl-C or\n"
                    "SIGTERM. Whoever reaches the port reads the paths of the mounts: keep it to this machine.");
    command->callback([address] { serve(*address); });
}

} // namespace cli
