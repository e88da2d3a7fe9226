#include "cli/TraceCommand.h"

#include "cli/CommandError.h"
#include "cli/JSONLine.h"
#include "cli/MountChannel.h"
#include "cli/Output.h"
#include "cli/trace/TraceText.h"
#include "foundation/DecodingError.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

namespace {

struct Request {
    std::string mountPoint;
    std::vector<std::string> operations;
    std::string path;
    std::string caller;
    std::string error;
    double slowerThan = 0;
    std::uint64_t count = 0; // 0: no end
    bool json = false;
};

/// As a trace for people has them, too.
std::vector<std::string> loweredAll(std::vector<std::string> names) {
    for (std::string& name : names)
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return names;
}

control::Members filterOf(const Request& request) {
    control::Members filter;
    if (!request.operations.empty())
        filter.add("operations", loweredAll(request.operations));
    if (!request.path.empty())
        filter.add("path", request.path);
    if (!request.caller.empty())
        filter.add("caller", request.caller);
    if (!request.error.empty())
        filter.add("error", request.error);
    if (request.slowerThan > 0)
        filter.add("slowerThan", request.slowerThan);
    return filter;
}

/// Lines that were lost stand as {"lost":N} in the place of those.
std::optional<std::int64_t> lostIn(const kemvi::JSONObject& line) {
    const auto* lost = line.find("lost");
    if (lost == nullptr || lost->asNumber() == nullptr)
        return std::nullopt;
    return static_cast<std::int64_t>(*lost->asNumber());
}

class Printer {
public:
    explicit Printer(const Request& request) : request_(request) {}

    void add(std::string_view line) {
        const auto members = objectOfLine(line);
        const auto lost = lostIn(members);
        if (request_.json)
            text_ += line;
        else if (lost)
            text_ += "... " + std::to_string(*lost) + " lines lost here: they came faster than they were read";
        else
            text_ += traceText(members);
        text_ += '\n';
        printed_ += lost ? 0 : 1;
    }

    bool isDone() const { return request_.count > 0 && printed_ >= request_.count; }

    void flush() {
        print(text_);
        text_.clear();
    }

private:
    const Request& request_;
    std::string text_;
    std::uint64_t printed_ = 0;
};

void follow(control::ControlClient& channel, const Request& request) {
    Printer printer(request);
    while (const auto first = channel.nextLine()) {
        printer.add(*first);
        while (!printer.isDone()) {
            const auto next = channel.lineAtHand();
            if (!next)
                break;
            printer.add(*next);
        }
        printer.flush();
        if (printer.isDone())
            return;
    }
    printMessage(request.mountPoint + ": the trace has ended with the mount");
}

ExitCode run(const Request& request) {
    auto channel = connectToMount(request.mountPoint);
    try {
        channel.ask("trace", filterOf(request));
        follow(channel, request);
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    } catch (const foundation::DecodingError&) {
        throw CommandError(ExitCode::failure, request.mountPoint,
                           "sent a line that is no JSON; are its kemvi and this "
                           "one of very different versions?");
    }
    return ExitCode::success;
}

} // namespace

void addTraceCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("trace", "Show each request of the kernel to a mount while it is done");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_option("--op", request->operations, "Only these operations: lookup, open, read, ...")
        ->delimiter(',')
        ->allow_extra_args(false);
    command->add_option("--path", request->path, "Only this path and what lies beneath, or a pattern: '*.txt'");
    command->add_option("--caller", request->caller, "Only by this process: its number, or a pattern for its name");
    command->add_option("--error", request->error, "Only what failed: any, or the error's name, such as ENOENT");
    command->add_option("--slower", request->slowerThan, "Only what took this many milliseconds or more")
        ->check(CLI::Range(0.0, 1e9));
    command->add_option("--count", request->count, "End after so many lines");
    command->add_flag("--json", request->json, "One JSON object per line");
    command->footer("Ends with Ctrl-C. Paths are those of the mount: /a/b for MOUNTPOINT/a/b.");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
