#include "cli/MetricsCommand.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/metrics/PageServer.h"
#include "cli/stats/PrometheusText.h"
#include "control/ControlClient.h"
#include "foundation/Error.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace cli {

namespace {

using namespace std::chrono_literals;

/// All mounts are asked at once, so this is also what a whole page takes at most.
constexpr auto limit = 1000ms;

ScrapedMount scraped(const std::string& mountPoint, const std::string& channelPath, pid_t host) {
    try {
        control::ControlClient channel(channelPath, host, limit);
        return {mountPoint, MountFigures::of(channel.ask("stats", {}, limit))};
    } catch (const control::ChannelError&) {
        return {mountPoint, std::nullopt};
    }
}

std::vector<ScrapedMount> scrapedMounts() {
    std::vector<std::future<ScrapedMount>> answers;
    for (const auto& serving : servingProcesses())
        if (!serving.controlPath.empty())
            answers.push_back(std::async(std::launch::async, scraped, serving.mountPoint, serving.controlPath,
                                         serving.process.pid()));
    std::vector<ScrapedMount> mounts;
    mounts.reserve(answers.size());
    for (auto& answer : answers)
        mounts.push_back(answer.get());
    std::sort(mounts.begin(), mounts.end(),
              [](const ScrapedMount& a, const ScrapedMount& b) { return a.mountPoint < b.mountPoint; });
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
