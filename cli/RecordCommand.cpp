#include "cli/RecordCommand.h"

#include "cli/CommandError.h"
#include "cli/MountChannel.h"
#include "cli/Signals.h"
#include "cli/record/RecordSettings.h"
#include "foundation/Descriptor.h"
#include "recording/Output.h"
#include "recording/RecordingError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/signalfd.h>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

struct Request {
    std::string mountPoint;
    std::string output;
    RecordOptions options;
    double duration = 0; // in seconds; 0: until a signal
};

/// Takes what the mount sends, until a signal, the time given, or the end of the mount.
class Recorder {
public:
    Recorder(control::ControlClient& channel, recording::Output& output, double duration)
        : channel_(channel), output_(output) {
        const sigset_t set = stopSignals();
        signals_ = foundation::Descriptor(::signalfd(-1, &set, SFD_CLOEXEC));
        if (!signals_.isOpen())
            throw CommandError(ExitCode::failure, "record", "cannot wait for signals: " + errnoText(errno));
        if (duration > 0)
            end_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(duration));
    }

    void run() {
        while (takeLines() && wait())
            continue;
        takeWhatIsOnItsWay();
        output_.write(R"({"end":{"lines":)" + std::to_string(lines_) + "}}\n");
        output_.finish();
    }

    /// Without the header.
    std::uint64_t lines() const { return lines_; }

    bool mountEnded() const { return channel_.ended(); }

private:
    /// Writes what has arrived. False at the end of the stream.
    bool takeLines() {
        while (const auto line = channel_.lineAtHand()) {
            output_.write(*line);
            output_.write("\n");
            lines_ += hasHeader_ ? 1 : 0;
            hasHeader_ = true;
        }
        return !channel_.ended();
    }

    /// What was asked before the end was called for is recorded, too, unless more and more comes.
    void takeWhatIsOnItsWay() {
        constexpr int quiet = 100; // milliseconds
        const auto latest = Clock::now() + std::chrono::seconds(1);
        pollfd source{channel_.descriptor(), POLLIN, 0};
        while (takeLines() && Clock::now() < latest && ::poll(&source, 1, quiet) > 0)
            continue;
    }

    /// False when it is time to end.
    bool wait() {
        const auto left = end_ ? std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count() : -1;
        if (end_ && left <= 0)
            return false;
        std::array<pollfd, 2> sources{pollfd{channel_.descriptor(), POLLIN, 0}, pollfd{signals_.number(), POLLIN, 0}};
        const int limit = static_cast<int>(std::min<std::int64_t>(left, 60'000));
        int ready = ::poll(sources.data(), sources.size(), idle_ ? limit : flushAfter(limit));
        if (ready == 0 && !idle_) {
            output_.flush(); // nothing came for a while: what is there is to survive whatever comes
            idle_ = true;
        } else if (ready > 0) {
            idle_ = false;
        }
        return ready <= 0 || sources[1].revents == 0;
    }

    static int flushAfter(int limit) {
        constexpr int flushInterval = 500; // milliseconds
        return limit < 0 ? flushInterval : std::min(limit, flushInterval);
    }

    control::ControlClient& channel_;
    recording::Output& output_;
    foundation::Descriptor signals_;
    std::optional<Clock::time_point> end_;
    std::uint64_t lines_ = 0;
    bool hasHeader_ = false;
    bool idle_ = false;
};

void record(const Request& request) {
    const recording::Settings settings = request.options.settings();
    blockStopSignals();
    auto channel = connectToMount(request.mountPoint);
    const auto output = recording::openOutput(request.output);
    control::Members members;
    members.add("payloads", text(settings.payloads));
    members.add("scramble", settings.names == recording::Names::scrambled);
    channel.ask("record", members);
    std::fprintf(stderr, "Recording into %s%s\n", foundation::escapedControls(request.output).c_str(),
                 request.duration > 0 ? "" : "; Ctrl-C ends it");
    Recorder recorder(channel, *output, request.duration);
    recorder.run();
    if (recorder.mountEnded())
        printMessage(request.mountPoint + ": the recording has ended with the mount");
    std::fprintf(stderr, "Recorded %llu lines\n", static_cast<unsigned long long>(recorder.lines()));
}

ExitCode run(const Request& request) {
    try {
        record(request);
    } catch (const recording::RecordingError& error) {
        throw CommandError(ExitCode::badRecording, request.output, error.what());
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addRecordCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("record", "Record what a mount is asked and what its helper answers");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_option("-o,--output", request->output, "The recording; compressed if its name ends in .zst")
        ->type_name("FILE")
        ->required();
    addRecordOptions(*command, request->options, "--");
    command->add_option("--duration", request->duration, "End after so many seconds; without it, with Ctrl-C")
        ->check(CLI::Range(0.001, 1e7))
        ->type_name("SECONDS");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
