#include "cli/StatsCommand.h"

#include "cli/CommandError.h"
#include "cli/MountChannel.h"
#include "cli/Output.h"
#include "cli/stats/FiguresText.h"
#include "cli/stats/MountFigures.h"
#include "cli/stats/PrometheusText.h"
#include "control/JSONText.h"
#include "foundation/Utf8.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace cli {

namespace {

struct Request {
    std::string mountPoint;
    bool json = false;
    bool prometheus = false;
    bool watch = false;
    double interval = 1; // seconds
};

/// The beginning of a line, of no more than so many characters.
std::string_view cutOff(std::string_view line, std::size_t characters) {
    std::size_t end = 0;
    for (; characters > 0 && end < line.size(); --characters)
        end += std::max<std::size_t>(1, foundation::utf8CharacterLength(line.substr(end)));
    return line.substr(0, end);
}

/// As many lines as the terminal has, each cut off where that ends, and nothing left of what stood there before.
std::string screenOf(std::string_view text) {
    winsize size{};
    ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    const std::size_t rows = size.ws_row > 1 ? size.ws_row - 1U : 24;
    const std::size_t columns = size.ws_col > 0 ? size.ws_col : 80;
    std::string screen = "\033[H";
    for (std::size_t row = 0; row < rows && !text.empty(); ++row) {
        const std::size_t end = text.find('\n');
        screen.append(cutOff(text.substr(0, end), columns)).append("\033[K\n");
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return screen + "\033[J";
}

void watch(control::ControlClient& channel, const Request& request) {
    if (::isatty(STDOUT_FILENO) != 1) {
        throw CommandError(ExitCode::usage, "--watch",
                           "standard output is no terminal; without --watch the figures are told once");
    }
    print("\033[2J");
    std::optional<MountFigures> earlier;
    while (true) {
        auto figures = MountFigures::of(channel.ask("stats"));
        print(screenOf((earlier ? figuresOfInterval(figures.since(*earlier), figures.seconds) : figuresText(figures)) +
                       "\nCtrl-C ends this."));
        earlier = std::move(figures);
        std::this_thread::sleep_for(std::chrono::duration<double>(request.interval));
    }
}

void tellOnce(control::ControlClient& channel, const Request& request) {
    const auto answer = channel.ask("stats");
    if (request.json)
        return print(control::jsonText(withoutOk(answer)) + "\n");
    auto figures = MountFigures::of(answer);
    if (!request.prometheus)
        return print(figuresText(figures));
    const std::string mountPoint = figures.mountPoint;
    print(prometheusText({{mountPoint, std::move(figures)}}));
}

ExitCode run(const Request& request) {
    auto channel = connectToMount(request.mountPoint);
    try {
        if (request.watch)
            watch(channel, request);
        else
            tellOnce(channel, request);
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addStatsCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("stats", "Tell what a mount has done, and how long it took");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    auto* json = command->add_flag("--json", request->json, "As one JSON object, with whole histograms");
    auto* prometheus =
        command->add_flag("--prometheus", request->prometheus, "In the text format of Prometheus")->excludes(json);
    auto* watching = command->add_flag("--watch", request->watch, "Draw what is done now, every second")
                         ->excludes(json)
                         ->excludes(prometheus);
    constexpr double least = 0.1;
    constexpr double most = 3600;
    command->add_option("--interval", request->interval, "Seconds between two drawings of --watch (1)")
        ->needs(watching)
        ->check(CLI::Range(least, most));
    command->footer("Answers also while the helper hangs. kemvi metrics serves all mounts to a Prometheus server.");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
